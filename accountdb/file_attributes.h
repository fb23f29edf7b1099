// Extended attributes of an account file, among them its access control list and its security
// label.
//
// security.ima and security.evm are not copied: they vouch for the bytes and the inode of one file.
// An attribute that the new file already has with the same value is not set again, because setting
// a label may need more rights than having it.
#pragma once

namespace orvs {

// Gives the file `to` the attributes of the file `from`. Removes an access control list that only
// `to` has, by inheritance from its directory. The caller sets the mode afterwards, because list
// and mode share the bits of the group. False when an attribute could not be read or set.
bool copyAttributes(int from, int to);

}  // namespace orvs
