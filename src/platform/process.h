// The seam's facts about processes: who the calling process is (machine,
// user, process id), whether another process of this machine is still
// running for a given user, and the executable search path.
#ifndef QORC_PLATFORM_PROCESS_H
#define QORC_PLATFORM_PROCESS_H

#include <string>
#include <vector>

namespace qorc::platform {

// The machine's name. False when there is none.
bool ComputerName(std::u16string* out);
// The login name of the user the process acts for (its effective user).
// False when that user has no name.
bool UserName(std::u16string* out);
// The calling process's id; in a child made by fork, the child's own. Cheap
// enough to ask at every operation.
unsigned long CurrentProcessId();

// Has `prepare` called in the calling process just before each fork, so that
// it can put down what a child must not inherit. Never called where
// processes are not forked.
void CallBeforeEachFork(void (*prepare)());

enum class ProcessState {
  // Running (not a zombie) and acting for the named user.
  Alive,
  // No such process, a zombie, or one acting for another user.
  Gone,
  // Cannot be told here.
  Unknown
};
// What has become of the process `id` of this machine that was started by
// the user named `user`.
ProcessState ProcessOfUser(unsigned long id, const std::u16string& user);

// The directories of the executable search path ("PATH"), in its order and
// in library form; an empty entry of the list stays an empty name. False
// when the variable is not set.
bool ExecutableSearchPath(std::vector<std::u16string>* directories);

}  // namespace qorc::platform

#endif
