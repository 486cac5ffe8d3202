#include "cli/files/held_file.h"

#include <unistd.h>

#include <utility>

namespace cardcert::cli {

HeldFile::HeldFile(int descriptor) : descriptor_(descriptor) {
  if (descriptor_ >= 0 && fstat(descriptor_, &info_) != 0)
    Close();
}

HeldFile::~HeldFile() {
  Close();
}

HeldFile::HeldFile(HeldFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), info_(other.info_) {}

HeldFile& HeldFile::operator=(HeldFile&& other) noexcept {
  if (this != &other) {
    Close();
    descriptor_ = std::exchange(other.descriptor_, -1);
    info_ = other.info_;
  }
  return *this;
}

int HeldFile::get() const {
  if (descriptor_ >= 0 && IsStillOurs())
    return descriptor_;
  errno = EBADF;
  return -1;
}

bool HeldFile::IsStillOurs() const {
  struct stat now = {};
  return fstat(descriptor_, &now) == 0 && IsSameFile(now, info_);
}

void HeldFile::Close() {
  const int saved_errno = errno;
  if (descriptor_ >= 0 && IsStillOurs())
    close(descriptor_);
  descriptor_ = -1;
  errno = saved_errno;
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace cardcert::cli
