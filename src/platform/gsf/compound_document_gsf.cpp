// Compound documents through libgsf. libgsf reads a document's tree and its
// streams sector by sector and writes a new document sequentially; the
// sound-structure checks and the atomic replacement are done here. libgsf
// reports damaged documents through GLib's log as well as through its
// results: those messages are kept out of the host's log, since the library
// writes none.
#include <fcntl.h>
#include <glib.h>
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-stdio.h>
#include <gsf/gsf-input.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-stdio.h>
#include <gsf/gsf-output.h>
#include <gsf/gsf-utils.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "platform/compound_document.h"
#include "platform/gsf/compound_structure.h"
#include "platform/posix/native_path.h"

namespace qorc::platform {

namespace {

void IgnoreMessage(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

void StartLibgsf() {
  static const bool started = [] {
    gsf_init();
    const auto levels = static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK | G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION);
    for (const char* domain : {"libgsf", "libgsf:msole", "libgsf:utils", "libgsf:input"}) {
      g_log_set_handler(domain, levels, IgnoreMessage, nullptr);
    }
    return true;
  }();
  (void)started;
}

// Holds one reference of a GObject.
template <typename T>
class Ref {
 public:
  explicit Ref(T* object = nullptr) : object_(object) {}
  ~Ref() {
    if (object_ != nullptr) g_object_unref(object_);
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  T* get() const { return object_; }
  T* release() {
    T* object = object_;
    object_ = nullptr;
    return object;
  }

 private:
  T* object_;
};

std::u16string FromUtf8(const char* name) {
  std::u16string out;
  if (name == nullptr) return out;
  glong length = 0;
  gunichar2* units = g_utf8_to_utf16(name, -1, nullptr, &length, nullptr);
  if (units == nullptr) return out;
  out.assign(reinterpret_cast<const char16_t*>(units), static_cast<std::size_t>(length));
  g_free(units);
  return out;
}

// Empty when the name holds an unpaired surrogate.
std::string ToUtf8(const std::u16string& name) {
  std::string out;
  gchar* text = g_utf16_to_utf8(reinterpret_cast<const gunichar2*>(name.data()), static_cast<glong>(name.size()),
                                nullptr, nullptr, nullptr);
  if (text == nullptr) return out;
  out = text;
  g_free(text);
  return out;
}

FileIdentity IdentityOf(const struct stat64& status) {
  FileIdentity identity;
  identity.device = static_cast<unsigned long long>(status.st_dev);
  identity.inode = static_cast<unsigned long long>(status.st_ino);
  identity.size = static_cast<long long>(status.st_size);
  identity.modified = static_cast<long long>(status.st_mtim.tv_sec) * 1000000000LL + status.st_mtim.tv_nsec;
  return identity;
}

// Reading ----------------------------------------------------------------------

class GsfEntry final : public CompoundEntry {
 public:
  GsfEntry(GsfInput* input, std::u16string name) : input_(input), name_(std::move(name)) {
    const int children = GSF_IS_INFILE(input) ? gsf_infile_num_children(GSF_INFILE(input)) : -1;
    storage_ = children >= 0;
    childCount_ = children < 0 ? 0 : children;
    size_ = storage_ ? 0 : static_cast<long long>(gsf_input_size(input));
  }

  const std::u16string& Name() const override { return name_; }
  bool IsStorage() const override { return storage_; }
  long long Size() const override { return size_; }
  void GetClassId(unsigned char id[16]) const override {
    std::memset(id, 0, 16);
    if (storage_ && GSF_IS_INFILE_MSOLE(input_.get())) {
      if (!gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(input_.get()), id)) std::memset(id, 0, 16);
    }
  }
  int ChildCount() const override { return childCount_; }

  std::unique_ptr<CompoundEntry> Child(int index) const override {
    if (!storage_ || index < 0 || index >= childCount_) return nullptr;
    GsfInfile* infile = GSF_INFILE(input_.get());
    std::u16string name = FromUtf8(gsf_infile_name_by_index(infile, index));
    GsfInput* child = gsf_infile_child_by_index(infile, index);
    if (child == nullptr) return nullptr;
    return std::unique_ptr<CompoundEntry>(new (std::nothrow) GsfEntry(child, std::move(name)));
  }

  int ReadAt(long long offset, int count, void* data) override {
    if (storage_ || offset < 0 || count < 0) return -1;
    if (offset >= size_ || count == 0) return 0;
    const long long available = size_ - offset;
    const std::size_t wanted = static_cast<std::size_t>(count < available ? count : available);
    // gsf_input_seek answers TRUE on failure.
    if (gsf_input_seek(input_.get(), static_cast<gsf_off_t>(offset), G_SEEK_SET)) return -1;
    if (gsf_input_read(input_.get(), wanted, static_cast<guint8*>(data)) == nullptr) return -1;
    return static_cast<int>(wanted);
  }

 private:
  Ref<GsfInput> input_;
  std::u16string name_;
  bool storage_ = false;
  int childCount_ = 0;
  long long size_ = 0;
};

// The structure was checked before libgsf read it; this checks that libgsf
// sees every element the check reached, and every stream whole: its size
// within the file and its last byte read. An element libgsf left out would
// be lost at the next commit.
bool IsSound(CompoundEntry* entry, long long fileSize, int depth, int* entries) {
  // The directory is a tree; anything deeper than this is a damaged one.
  if (depth > 256) return false;
  if (depth > 0) ++*entries;
  if (!entry->IsStorage()) {
    const long long size = entry->Size();
    if (size < 0 || size > fileSize) return false;
    unsigned char last = 0;
    return size == 0 || entry->ReadAt(size - 1, 1, &last) == 1;
  }
  for (int i = 0; i < entry->ChildCount(); ++i) {
    std::unique_ptr<CompoundEntry> child = entry->Child(i);
    if (child == nullptr || !IsSound(child.get(), fileSize, depth + 1, entries)) return false;
  }
  return true;
}

// Writing ----------------------------------------------------------------------

class GsfWriter final : public CompoundWriter {
 public:
  GsfWriter(std::string target, std::string temporary, std::FILE* file)
      : target_(std::move(target)), temporary_(std::move(temporary)), file_(file) {}

  ~GsfWriter() override {
    // Unfinished: the new file goes, the target stays as it was.
    while (!open_.empty()) {
      gsf_output_close(open_.back());
      g_object_unref(open_.back());
      open_.pop_back();
    }
    if (sink_ != nullptr) {
      if (!gsf_output_is_closed(sink_)) gsf_output_close(sink_);
      g_object_unref(sink_);
    }
    if (file_ != nullptr) std::fclose(file_);
    if (!replaced_) ::unlink(temporary_.c_str());
  }

  bool Start(const unsigned char rootClassId[16]) {
    sink_ = gsf_output_stdio_new_FILE(temporary_.c_str(), file_, TRUE);
    if (sink_ == nullptr) return false;
    GsfOutfile* root = gsf_outfile_msole_new(sink_);
    if (root == nullptr) return false;
    open_.push_back(GSF_OUTPUT(root));
    gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(root), rootClassId);
    return true;
  }

  bool BeginStorage(const std::u16string& name, const unsigned char classId[16]) override {
    GsfOutput* storage = NewChild(name, true);
    if (storage == nullptr) return false;
    gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(storage), classId);
    return true;
  }

  bool EndStorage() override { return CloseCurrent(); }

  bool BeginStream(const std::u16string& name, long long size) override {
    (void)size;
    return NewChild(name, false) != nullptr;
  }

  bool Write(const void* data, int count) override {
    if (failed_ || open_.size() < 2 || count < 0) return Fail();
    if (count == 0) return true;
    if (!gsf_output_write(open_.back(), static_cast<std::size_t>(count), static_cast<const guint8*>(data))) {
      return Fail();
    }
    return true;
  }

  bool EndStream() override { return CloseCurrent(); }

  bool Replace(FileIdentity* identity) override {
    if (failed_ || open_.size() != 1) return Fail();
    // Closing the document closes its sink too.
    if (!CloseCurrent()) return false;
    const bool closed = gsf_output_is_closed(sink_) || gsf_output_close(sink_);
    g_object_unref(sink_);
    sink_ = nullptr;
    if (!closed) return Fail();
    // The new document reaches the disk before it takes the old one's name.
    std::FILE* file = file_;
    file_ = nullptr;
    const bool flushed = std::fflush(file) == 0 && ::fsync(::fileno(file)) == 0;
    struct stat64 status;
    const bool known = ::fstat64(::fileno(file), &status) == 0;
    if (std::fclose(file) != 0 || !flushed || !known) return Fail();
    if (::rename(temporary_.c_str(), target_.c_str()) != 0) return Fail();
    replaced_ = true;
    *identity = IdentityOf(status);
    return true;
  }

 private:
  bool Fail() {
    failed_ = true;
    return false;
  }

  GsfOutput* NewChild(const std::u16string& name, bool storage) {
    if (failed_ || open_.empty()) return nullptr;
    const std::string utf8 = ToUtf8(name);
    if (utf8.empty()) {
      Fail();
      return nullptr;
    }
    GsfOutput* child = gsf_outfile_new_child(GSF_OUTFILE(open_.back()), utf8.c_str(), storage ? TRUE : FALSE);
    if (child == nullptr) {
      Fail();
      return nullptr;
    }
    open_.push_back(child);
    return child;
  }

  bool CloseCurrent() {
    if (failed_ || open_.empty()) return Fail();
    GsfOutput* current = open_.back();
    open_.pop_back();
    const bool closed = gsf_output_close(current);
    g_object_unref(current);
    return closed ? true : Fail();
  }

  std::string target_;
  std::string temporary_;
  std::FILE* file_;
  GsfOutput* sink_ = nullptr;
  // The root, then the storages being written, then the stream being written.
  std::vector<GsfOutput*> open_;
  bool failed_ = false;
  bool replaced_ = false;
};

}  // namespace

FileIdentity IdentifyFile(const char16_t* path) {
  FileIdentity identity;
  try {
    const std::string name = posix::NativePath(path);
    struct stat64 status;
    if (!name.empty() && ::stat64(name.c_str(), &status) == 0) identity = IdentityOf(status);
  } catch (const std::bad_alloc&) {
  }
  return identity;
}

std::unique_ptr<CompoundEntry> OpenCompoundDocument(const char16_t* path, FileIdentity* identity) {
  try {
    StartLibgsf();
    const std::string name = posix::NativePath(path);
    if (name.empty()) return nullptr;
    std::FILE* file = ::fopen64(name.c_str(), "rb");
    if (file == nullptr) return nullptr;
    struct stat64 status;
    int checked = 0;
    if (::fstat64(::fileno(file), &status) != 0 || !S_ISREG(status.st_mode) ||
        !posix::HasSoundStructure(file, static_cast<long long>(status.st_size), &checked)) {
      std::fclose(file);
      return nullptr;
    }
    // The stream is the document's from here: closing the input closes it.
    Ref<GsfInput> input(gsf_input_stdio_new_FILE(name.c_str(), file, FALSE));
    if (input.get() == nullptr) {
      std::fclose(file);
      return nullptr;
    }
    GsfInfile* document = gsf_infile_msole_new(input.get(), nullptr);
    if (document == nullptr) return nullptr;
    std::unique_ptr<CompoundEntry> root(new GsfEntry(GSF_INPUT(document), std::u16string()));
    int seen = 0;
    if (!root->IsStorage() || !IsSound(root.get(), static_cast<long long>(status.st_size), 0, &seen) ||
        seen != checked) {
      return nullptr;
    }
    *identity = IdentityOf(status);
    return root;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::unique_ptr<CompoundWriter> CreateCompoundWriter(const char16_t* target, const unsigned char rootClassId[16]) {
  try {
    StartLibgsf();
    const std::string name = posix::NativePath(target);
    if (name.empty()) return nullptr;
    const std::size_t slash = name.rfind('/');
    const std::string directory = slash == std::string::npos ? std::string() : name.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    // In the target's directory, so that the rename stays on one file system.
    std::string temporary = directory + "." + base + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return nullptr;
    // The new document gets the old one's permissions, or the usual ones.
    struct stat64 old;
    if (::stat64(name.c_str(), &old) == 0) {
      ::fchmod(fd, old.st_mode & 07777);
    } else {
      const mode_t mask = ::umask(0);
      ::umask(mask);
      ::fchmod(fd, 0666 & ~mask);
    }
    std::FILE* file = ::fdopen(fd, "wb");
    if (file == nullptr) {
      ::close(fd);
      ::unlink(temporary.c_str());
      return nullptr;
    }
    std::unique_ptr<GsfWriter> writer(new GsfWriter(name, temporary, file));
    if (!writer->Start(rootClassId)) return nullptr;
    return writer;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace qorc::platform
