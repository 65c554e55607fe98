// A fresh temporary directory for one test, removed with everything in it.
#ifndef QORC_TESTS_SUPPORT_TEMP_DIR_H
#define QORC_TESTS_SUPPORT_TEMP_DIR_H

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

class TempDir {
 public:
  // In the system's temporary directory, or under `base`. A new name is drawn
  // until one can be created: the directory is made exclusively, as mkdtemp
  // does.
  explicit TempDir(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
    static std::mt19937_64 random(std::random_device{}());
    for (;;) {
      std::filesystem::path candidate = base / ("qorc-test-" + std::to_string(random() % 100000000000ULL));
      std::error_code error;
      if (std::filesystem::create_directory(candidate, error)) {
        path_ = candidate;
        return;
      }
      if (error) std::filesystem::create_directories(base);
    }
  }
  ~TempDir() {
    std::error_code ignored;
    // Read-only files would stop the removal on Windows.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_write,
                                   std::filesystem::perm_options::add, ignored);
    }
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
