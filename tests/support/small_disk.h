// A file system of its own on a folder, with little room, for the life of the object.
#pragma once

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <string>

namespace kova::test {

class SmallDisk {
 public:
  // `room` as mount options of tmpfs, such as "size=4k" (one page of data).
  SmallDisk(std::string folder, const std::string& room) : folder_(std::move(folder)) {
    std::filesystem::create_directories(folder_);
    EXPECT_EQ(mount("tmpfs", folder_.c_str(), "tmpfs", 0, room.c_str()), 0);
  }
  ~SmallDisk() { umount2(folder_.c_str(), MNT_DETACH); }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

 private:
  std::string folder_;
};

}  // namespace kova::test
