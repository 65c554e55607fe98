// The rule that decides whether a line whose driver left some settings
// untaken can still be used.
#ifndef QORC_DEVICE_SERIAL_RULES_H
#define QORC_DEVICE_SERIAL_RULES_H

#include "platform/serial_line.h"

namespace qorc {

// The settings a line may leave untaken without failing the opening.
unsigned ForgivenSerialSettings(bool isVirtual);
// Done when the line can be used as set, else why not.
platform::SerialSetup JudgeSerialOutcome(const platform::SerialOutcome& outcome);

}  // namespace qorc

#endif
