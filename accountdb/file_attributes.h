// What a file has besides its bytes, owner and mode: extended attributes, and so its access control
// list and its security label.
//
// Not copied are security.ima and security.evm, which vouch for the bytes and the inode of one
// file. An attribute that the other file has already, with the same value, is left alone, because
// setting a label may need more rights than having it.
#pragma once

namespace orvs {

// Gives the file behind `to` the attributes of the one behind `from`; an access control list that
// only the new file has, from its directory, goes. The caller sets the mode afterwards: both share
// the group's bits. False when an attribute could not be read or set.
bool copyAttributes(int from, int to);

}  // namespace orvs
