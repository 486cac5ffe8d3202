#include "cli/files/shared_folder.h"

#include <unistd.h>

namespace cardcert::cli {

namespace {

// In a user namespace, every user without a number of its own appears under this one, so that equal
// numbers do not mean equal users. The default of /proc/sys/fs/overflowuid.
constexpr uid_t kOverflowUser = 65534;

bool IsStickyAndWritableFor(mode_t others, const struct stat& folder) {
  return (folder.st_mode & S_ISVTX) != 0 && (folder.st_mode & others) != 0;
}

bool HasTrustedOwner(const struct stat& file, const struct stat& folder) {
  return file.st_uid == geteuid() || (file.st_uid == folder.st_uid && file.st_uid != kOverflowUser);
}

}  // namespace

bool MayFollowLink(const struct stat& link, const struct stat& folder) {
  return !IsStickyAndWritableFor(S_IWOTH, folder) || HasTrustedOwner(link, folder);
}

bool MayUseExisting(const struct stat& file, const struct stat& folder) {
  return !(S_ISREG(file.st_mode) || S_ISFIFO(file.st_mode)) ||
         !IsStickyAndWritableFor(S_IWOTH | S_IWGRP, folder) || HasTrustedOwner(file, folder);
}

}  // namespace cardcert::cli
