#include "math/generators.h"

namespace qorc {
namespace {
unsigned int g_runtimeRandState = 1;
unsigned int g_intRandState = 0x12345678;
}  // namespace

void SeedRuntimeRand(unsigned int seed) { g_runtimeRandState = seed; }

int RuntimeRand() {
  g_runtimeRandState = g_runtimeRandState * 214013u + 2531011u;
  return static_cast<int>((g_runtimeRandState >> 16) & 0x7FFF);
}

unsigned int IntRandState() { return g_intRandState; }
void SetIntRandState(unsigned int state) { g_intRandState = state; }

}  // namespace qorc
