// A connection to an outside resource (a database file, a server session)
// that belongs to the process that opened it. A child made by fork inherits
// its parent's connection but must neither use it nor close it: the two
// processes would share descriptors, file locks and a server session that
// each side believes its own, and closing the child's copy would end or
// corrupt the parent's. On first use in a new process the owner opens a
// connection of its own; the inherited one is abandoned as it lies (its
// memory goes with the child's image).
//
// Every back-end of a process-wide service keeps its connections in one of
// these, so that the rule of which process may touch a connection lives here
// and nowhere else. Where processes are never forked, the owner never
// changes and the wrapper costs one comparison.
#ifndef QORC_PLATFORM_PROCESS_BOUND_H
#define QORC_PLATFORM_PROCESS_BOUND_H

#include <memory>
#include <utility>

#include "platform/process.h"

namespace qorc::platform {

template <typename Connection>
class ProcessBound {
 public:
  ProcessBound() = default;
  explicit ProcessBound(std::unique_ptr<Connection> connection) { Adopt(std::move(connection)); }
  ~ProcessBound() { Release(); }
  ProcessBound(const ProcessBound&) = delete;
  ProcessBound& operator=(const ProcessBound&) = delete;

  // The calling process's connection; null when it has none yet.
  Connection* Get() const { return OwnedHere() ? connection_.get() : nullptr; }

  // The calling process's connection, opened by `open` (which returns a
  // std::unique_ptr<Connection>, null on failure) when this process has none
  // yet. Null when opening fails; the next call tries again.
  template <typename Open>
  Connection* Acquire(Open open) {
    if (Connection* own = Get()) return own;
    Adopt(open());
    return Get();
  }

  // Makes `connection` the calling process's, in place of any it had.
  void Adopt(std::unique_ptr<Connection> connection) {
    Release();
    connection_ = std::move(connection);
    owner_ = CurrentProcessId();
  }

  // Closes the calling process's connection; one inherited from a parent is
  // only let go.
  void Release() {
    if (!OwnedHere()) (void)connection_.release();
    connection_.reset();
  }

 private:
  bool OwnedHere() const { return connection_ != nullptr && owner_ == CurrentProcessId(); }

  unsigned long owner_ = 0;
  std::unique_ptr<Connection> connection_;
};

}  // namespace qorc::platform

#endif
