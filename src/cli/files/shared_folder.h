// Rules for what other users may have left in a folder that everybody can write to.
//
// In a sticky folder such as /tmp anybody can create a link, a file or a pipe under a name that
// another user is about to use, but only its owner can remove it. Linux therefore has the settings
// fs.protected_symlinks, fs.protected_regular and fs.protected_fifos. Containers and older systems
// have them off, so these functions apply the same rules without asking for the settings. They
// matter most to root, whom no permission stops.
#pragma once

#include <sys/stat.h>

namespace cardcert::cli {

// Returns true if a process may follow the symbolic link `link` of `folder` at the end of a path:
// outside sticky folders to which everybody can write, any link; in such a folder, a link that
// belongs to the effective user or to the owner of the folder. As may_follow_link() in Linux.
bool MayFollowLink(const struct stat& link, const struct stat& folder);

// Returns true if a process may write to the existing file `file` of `folder` where it might have
// expected to create one. Restricts regular files and FIFOs in sticky folders to which everybody or
// a group can write, in the same way as links. As may_create_in_sticky() in Linux, with
// fs.protected_regular and fs.protected_fifos at 2.
bool MayUseExisting(const struct stat& file, const struct stat& folder);

}  // namespace cardcert::cli
