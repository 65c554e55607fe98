/// @file
/// Numerics: trigonometry in degrees with guarded inverses, rounding and
/// modulo, the division guard, random numbers, integer and bit functions,
/// elliptic integrals, and the CRC-32 and Adler-32 checksums.
/// None of these functions records an error: arguments outside a function's
/// domain give its documented fallback or the C runtime's result.
#ifndef QORC_NUMERICS_H
#define QORC_NUMERICS_H

#include <qorc/export.h>
#include <qorc/types.h>

// The C runtime's functions, same argument and result.
/// e to the power x (the C runtime's exp).
QORC_API double CmathExp(double x);
/// Natural logarithm (the C runtime's log).
QORC_API double CmathLog(double x);  // natural logarithm
/// x to the power y (the C runtime's pow).
QORC_API double CmathPow(double x, double y);
/// Square root (the C runtime's sqrt).
QORC_API double CmathSqrt(double x);
/// The smallest integer not below x.
QORC_API double CmathCeil(double x);
/// The largest integer not above x.
QORC_API double CmathFloor(double x);
/// The absolute value.
QORC_API double CmathAbs(double x);
/// True unless the value is infinite or not a number.
QORC_API C_BOOL CmathIsFinite(double x);

// Trigonometry; every angle, given or returned, is in degrees. The hyperbolic
// functions convert their argument from degrees as well.
/// Sine of an angle in degrees.
QORC_API double CmathSin(double angle);
/// Cosine of an angle in degrees.
QORC_API double CmathCos(double angle);
/// Tangent of an angle in degrees.
QORC_API double CmathTan(double angle);
/// Hyperbolic sine, the argument converted from degrees.
QORC_API double CmathSinH(double angle);
/// Hyperbolic cosine, the argument converted from degrees.
QORC_API double CmathCosH(double angle);
/// Sine and cosine of an angle in degrees.
/// Either pointer may be null.
QORC_API void CmathSinCos(double angle, double* sine, double* cosine);
/// Arc tangent, in degrees.
QORC_API double CmathAtan(double x);
/// In degrees.
/// Arc tangent of y / x in the quadrant of the point (x, y).
QORC_API double CmathAtan2(double y, double x);
/// Arc sine in degrees, guarded at the ends:
/// 90 above 0.999999999999, -90 at or below -0.999999999999.
QORC_API double CmathAsin(double x);
/// Arc cosine in degrees, guarded at the ends:
/// 0 above 0.999999999999, 180 below -0.999999999999.
QORC_API double CmathAcos(double x);

/// Rounding to the nearest integer, halves and values less than 1e-12 below a
/// half going up: 2.5 gives 3, -2.5 gives -2.
QORC_API double CmathRound(double x);
/// The runtime's remainder of a by b, plus b when it is negative.
QORC_API double CmathMod(double a, double b);
/// True when |denominator| is greater than 1e-12 times |numerator|.
QORC_API C_BOOL CmathCanDiv(double numerator, double denominator);
/// The line through (x1, y1) and (x2, y2) at x; x1 must differ from x2.
QORC_API double CmathInterpolate(double x1, double y1, double x2, double y2, double x);

/// The C runtime's generator (seeded by Copen): 0 to 1, both included.
QORC_API double CmathRand();
/// The C runtime's generator: 0 included to 1 excluded, in steps of 2^-15.
QORC_API double CmathRandPer();
/// The library's own 32-bit generator (seeded by Copen).
QORC_API unsigned int CmathIntRand();

/// Floor of the square root, exact for every 32-bit value.
QORC_API unsigned int CmathIntSqrt(unsigned int n);
/// The library's primality test. Its parity rule is kept as it always was:
/// 0 to 3 are reported prime, every odd number above 3 is reported not prime,
/// and even numbers go through the divisor and random-base tests.
QORC_API C_BOOL CmathIsPrime(unsigned int n);

// Bits of 32-bit words and of bytes.
/// Rotates the 32 bits left by count (modulo 32).
QORC_API unsigned int CmathIntRol(unsigned int value, int count);  // count modulo 32
/// Rotates the 32 bits right by count (modulo 32).
QORC_API unsigned int CmathIntRor(unsigned int value, int count);  // count modulo 32
/// The four bytes in reverse order.
QORC_API unsigned int CmathIntSwapBytes(unsigned int value);
/// The number of bits set.
QORC_API int CmathBitCount32(unsigned int value);
/// The number of bits set in a byte.
QORC_API int CmathBitCount8(unsigned char value);
/// The 32 bits in reverse order.
QORC_API unsigned int CmathBitReverse32(unsigned int value);
/// The 8 bits of a byte in reverse order.
QORC_API unsigned char CmathBitReverse8(unsigned char value);
/// The value of the lowest bit set; 0 for 0.
QORC_API unsigned int CmathBitGetLSB(unsigned int value);  // value of the lowest bit set, 0 for 0
/// The value of the highest bit set; 0 for 0.
QORC_API unsigned int CmathBitGetMSB(unsigned int value);  // value of the highest bit set, 0 for 0
/// The index of the highest bit set; -1 for 0.
QORC_API int CmathBitGetPower2(unsigned int value);        // index of the highest bit set, -1 for 0
/// True for an odd number of bits set.
QORC_API C_BOOL CmathBitGetParity32(unsigned int value);   // true for an odd number of bits set
/// True for an odd number of bits set in a byte.
QORC_API C_BOOL CmathBitGetParity8(unsigned char value);

/// Complete (K, E) and incomplete (F, Ephi) elliptic integrals of the first
/// and second kind, for the modulus sin(modularAngle) and the amplitude; both
/// angles in degrees. A null pointer skips that value. The last modular angle's
/// mean is cached, so sweeping the amplitude at one modulus is cheap.
QORC_API void CmathEllipticIntegral(double amplitude, double modularAngle, double* K, double* E, double* F,
                                    double* Ephi);

/// CRC-32 of `size` bytes, as zlib's crc32 computes it, continued from
/// `start`: the CRC-32 of the bytes before them (0, the default, when there
/// are none), so that data in several buffers are checked one buffer after
/// another. No bytes (size 0 or less) give `start`; a null pointer gives 0,
/// the initial value. Raises no error.
QORC_API unsigned int CchecksumCRC(int size, const void* data, unsigned int start = 0);
/// Adler-32 of `size` bytes, as zlib's adler32 computes it, continued from
/// `start`: the Adler-32 of the bytes before them (1, the default, when there
/// are none). No bytes (size 0 or less) give `start`; a null pointer gives 1,
/// the initial value. Raises no error.
QORC_API unsigned int CchecksumAdler(int size, const void* data, unsigned int start = 1);

#endif
