// Reading the kernel's table of mounts (/proc/self/mountinfo).
#ifndef QORC_PLATFORM_POSIX_MOUNTINFO_H
#define QORC_PLATFORM_POSIX_MOUNTINFO_H

#include <string>

namespace qorc::platform::posix {

// The source of the network file system (nfs, cifs, smb3, sshfs, 9p, ...)
// mounted at `mountPoint` according to the mountinfo text; the last mount
// there wins, as it hides the earlier ones. False when the mount there is
// not a network one, or when nothing is mounted there.
bool FindNetworkSource(const std::string& mountinfo, const std::string& mountPoint, std::string* source);

}  // namespace qorc::platform::posix

#endif
