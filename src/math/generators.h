// The two random generators of the library: the C runtime's (reproduced from
// the Windows runtime, whose RAND_MAX is 32767) and the library's own
// 32-bit integer generator.
#ifndef QORC_MATH_GENERATORS_H
#define QORC_MATH_GENERATORS_H

namespace qorc {

constexpr int kRuntimeRandMax = 32767;

void SeedRuntimeRand(unsigned int seed);
// 0 to kRuntimeRandMax, the Windows runtime's sequence for the same seed.
int RuntimeRand();

// State word of the library's integer generator (0x12345678 at load).
unsigned int IntRandState();
void SetIntRandState(unsigned int state);

}  // namespace qorc

#endif
