// The process-wide tables of the path services.
#ifndef QORC_PATH_ROOTS_H
#define QORC_PATH_ROOTS_H

namespace qorc {

// Releases the root table and the network-name cache; both are empty afterwards.
void DestroyRootTables();

}  // namespace qorc

#endif
