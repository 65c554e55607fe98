// A fresh temporary directory for one test, removed with everything in it.
#ifndef QORC_TESTS_SUPPORT_TEMP_DIR_H
#define QORC_TESTS_SUPPORT_TEMP_DIR_H

#include <cstdlib>
#include <filesystem>
#include <string>

class TempDir {
 public:
  // In the system's temporary directory, or under `base`.
  explicit TempDir(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
    std::string pattern = (base / "qorc-test-XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string File(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

#endif
