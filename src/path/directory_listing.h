// Listings of one directory by a wildcard pattern, made from the seam's
// enumeration of the directory.
#ifndef QORC_PATH_DIRECTORY_LISTING_H
#define QORC_PATH_DIRECTORY_LISTING_H

#include <string>

#include "platform/directory.h"

namespace qorc {

// Lists the entries of a directory whose names match a pattern, the way the
// Windows find-first enumeration does: `search` is the directory, a
// separator and the pattern ("dir\*.dll"). The pattern knows "*" (any run
// of characters) and "?" (one character), compares letters without case,
// and a trailing ".*" also matches names without a dot, so "*.*" matches
// every name. "." and ".." are listed like any other name. The entries come
// sorted by name, letters without case and ties in code-unit order, the same
// on every system. False, with nothing listed, when the directory cannot be
// read or no entry matches.
bool FindEntries(const char16_t* search, platform::DirectoryListing* out);

// Whether `name` matches `pattern` by the rules of FindEntries.
bool MatchesPattern(const std::u16string& name, const std::u16string& pattern);

}  // namespace qorc

#endif
