// The spine of the tool: one run, from the command line to the exit status.
#pragma once

// Runs the whole job once. Throws what main's outermost net turns into status 6.
int main2(int argc, char** argv);
