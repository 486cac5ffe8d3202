#include "cli/files/held_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>

namespace cardcert::cli {
namespace {

int OpenNull() {
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST(HeldFileTest, ClosesItsDescriptor) {
  const int descriptor = OpenNull();
  EXPECT_EQ(HeldFile(descriptor).get(), descriptor);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST(HeldFileTest, HoldsNothingAfterAFailedOpen) {
  errno = ENOENT;
  const HeldFile file(-1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(file);
  EXPECT_EQ(file.get(), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(HeldFileTest, OwnershipMoves) {
  const int descriptor = OpenNull();
  const int replaced = OpenNull();
  HeldFile first(descriptor);
  HeldFile second(std::move(first));
  EXPECT_EQ(second.get(), descriptor);
  HeldFile third(replaced);
  third = std::move(second);
  EXPECT_EQ(third.get(), descriptor);
  EXPECT_EQ(fcntl(replaced, F_GETFD), -1);
}

TEST(HeldFileTest, NoticesThatItsDescriptorIsAnotherFile) {
  const int descriptor = OpenNull();
  const int other = open("/dev/zero", O_RDONLY | O_CLOEXEC);
  {
    const HeldFile file(descriptor);
    dup2(other, descriptor);
    EXPECT_EQ(file.get(), -1);
  }
  EXPECT_EQ(close(descriptor), 0) << "closed a descriptor of somebody else";
  close(other);
}

TEST(HeldFileTest, TheSameFileHasDeviceAndInode) {
  struct stat a = {};
  a.st_dev = 1;
  a.st_ino = 2;
  struct stat b = a;
  EXPECT_TRUE(IsSameFile(a, b));
  b.st_dev = 3;
  EXPECT_FALSE(IsSameFile(a, b));
  b.st_dev = a.st_dev;
  b.st_ino = 3;
  EXPECT_FALSE(IsSameFile(a, b));
}

}  // namespace
}  // namespace cardcert::cli
