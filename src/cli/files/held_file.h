// A descriptor that belongs to one owner, and system calls that a signal may interrupt.
#pragma once

#include <sys/stat.h>

#include <cerrno>

namespace cardcert::cli {

// Repeats a system call for as long as a signal interrupts it. Returns the call's result.
template <typename Call>
auto RetryOnSignal(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

// Owns a descriptor and remembers which file it was opened for.
//
// A provider runs in the same process. One that closes descriptors it did not open, as daemons do
// at their start, lets the next open() reuse their numbers. Data for this file would then go into
// another one, so the file is compared before every use.
class HeldFile {
 public:
  // Holds nothing.
  HeldFile() = default;
  // Takes ownership of `descriptor`. A negative one holds nothing and leaves errno unchanged, so
  // that the result of open() can be passed as it is.
  explicit HeldFile(int descriptor);
  // Closes the descriptor, unless its number now belongs to another file. Leaves errno unchanged.
  ~HeldFile();
  HeldFile(HeldFile&& other) noexcept;
  HeldFile& operator=(HeldFile&& other) noexcept;
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;

  explicit operator bool() const { return descriptor_ >= 0; }

  // Returns the descriptor. Returns -1 with errno EBADF if nothing is held, or if the descriptor
  // was closed or replaced by somebody else.
  int get() const;

  // What fstat() told when the descriptor was taken over.
  const struct stat& info() const { return info_; }

 private:
  bool IsStillOurs() const;
  void Close();

  int descriptor_ = -1;
  struct stat info_ = {};
};

// Returns true if both describe the same file: the same inode of the same device.
bool IsSameFile(const struct stat& a, const struct stat& b);

}  // namespace cardcert::cli
