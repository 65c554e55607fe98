// The two random generators of the library: the C runtime's own (the one a
// host seeds with srand), seen through the Windows runtime's range of 0 to
// 32767, and the library's own 32-bit integer generator.
#ifndef QORC_MATH_GENERATORS_H
#define QORC_MATH_GENERATORS_H

namespace qorc {

constexpr int kRuntimeRandMax = 32767;

// srand: the host's seeding reaches the same generator.
void SeedRuntimeRand(unsigned int seed);
// One draw of the C runtime's rand(), reduced to 0 to kRuntimeRandMax.
int RuntimeRand();

// State word of the library's integer generator (0x12345678 at load).
unsigned int IntRandState();
void SetIntRandState(unsigned int state);
// Seeding replaces the state, except with 0, which keeps it.
void SeedIntRand(unsigned int seed);
// Advances the integer generator and returns its next result.
unsigned int NextIntRand();
// True when the state is a multiple of 2^31 - 1: the generator then repeats
// one value for ever.
bool IntRandIsStuck();

}  // namespace qorc

#endif
