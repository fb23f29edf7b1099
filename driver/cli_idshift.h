// One run of idshift, from the command line to the exit status.
#pragma once

// Runs once and returns the exit status. main() turns every exception that leaves it into status 6.
int main2(int argc, char** argv);
