// Elliptic integrals of the first and second kind by the arithmetic-geometric
// mean and the descending Landen transformation (the classical method of the
// handbook tables). The mean of the last modular angle is kept, so that
// successive calls with the same modulus only run the amplitude part.
#include <qorc/numerics.h>

#include <cmath>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegreesToRadians = 0.017453292519943295;  // pi / 180
constexpr double kRadiansToDegrees = 57.29577951308232;     // 180 / pi
constexpr double kTolerance = 1e-12;
constexpr int kMaxTerms = 20;

struct MeanCache {
  bool valid = false;
  double angle = 1e100;
  double K = 0.0;
  double E = 0.0;
  int N = 0;
  double a[kMaxTerms] = {};
  double b[kMaxTerms] = {};
  double c[kMaxTerms] = {};
};

MeanCache g_cache;

void ComputeMean(double angle) {
  MeanCache& m = g_cache;
  // The integrals depend on the modulus only through its square: taking the
  // absolute values keeps the mean real for every angle and changes nothing
  // between 0 and 90 degrees.
  m.a[0] = 1.0;
  m.b[0] = std::fabs(std::cos(angle * kDegreesToRadians));
  m.c[0] = std::fabs(std::sin(angle * kDegreesToRadians));
  // Without convergence within the table (a modular angle in the degenerate
  // band, or not a number), the mean stops at its last entry.
  m.N = kMaxTerms - 1;
  for (int n = 1; n < kMaxTerms; ++n) {
    m.c[n] = (m.a[n - 1] - m.b[n - 1]) / 2.0;
    if (m.c[n - 1] < kTolerance) {
      m.N = n - 1;
      break;
    }
    m.a[n] = (m.a[n - 1] + m.b[n - 1]) / 2.0;
    m.b[n] = std::sqrt(m.a[n - 1] * m.b[n - 1]);
  }
  m.K = kPi / (2.0 * m.a[m.N]);
  // The sum of 2^n * c_n^2, from the highest term down: doubling the running
  // sum at each step multiplies term n by 2^n.
  double sum = 0.0;
  for (int n = m.N; n >= 0; --n) sum = 2.0 * sum + m.c[n] * m.c[n];
  m.E = (1.0 - sum / 2.0) * m.K;
  m.angle = angle;
  m.valid = true;
}

}  // namespace

void CmathEllipticIntegral(double amplitude, double modularAngle, double* K, double* E, double* F, double* Ephi) {
  MeanCache& m = g_cache;
  if (!m.valid || !(std::fabs(modularAngle - m.angle) <= kTolerance)) ComputeMean(modularAngle);
  if (K != nullptr) *K = m.K;
  if (E != nullptr) *E = m.E;
  if (F == nullptr && Ephi == nullptr) return;

  double f;
  double ephi;
  if (modularAngle > -kTolerance && modularAngle < kTolerance) {
    // Circular case: both integrals are the amplitude itself.
    f = ephi = amplitude * kDegreesToRadians;
  } else if (modularAngle > 90.0 - kTolerance && modularAngle < 90.0 + kTolerance) {
    // Degenerate case, modulus 1.
    const double phi = amplitude * kDegreesToRadians;
    f = std::log(std::tan(phi / 2.0 + kPi / 4.0));
    ephi = std::sin(phi);
  } else {
    // Reduce the amplitude to [0, 90] degrees; each half turn adds 2K and 2E.
    double q = std::floor(amplitude / 180.0);
    double psi = amplitude - 180.0 * q;
    bool negated = false;
    if (psi > 90.0) {
      psi = 180.0 - psi;
      q += 1.0;
      negated = true;
    }
    if (psi > 90.0 - kTolerance) {
      f = m.K;
      ephi = m.E;
    } else {
      double phi = psi;
      double sum = 0.0;
      for (int n = 0; n < m.N; ++n) {
        double t = std::atan(std::tan(phi * kDegreesToRadians) * m.b[n] / m.a[n]) * kRadiansToDegrees;
        if (t < 0.0) t += 180.0;
        phi = 180.0 * std::floor(phi / 180.0) + phi + t;
        sum += m.c[n + 1] * std::sin(phi * kDegreesToRadians);
      }
      f = phi * kDegreesToRadians / (std::ldexp(1.0, m.N) * m.a[m.N]);
      ephi = sum + m.E * f / m.K;
    }
    if (negated) {
      f = -f;
      ephi = -ephi;
    }
    if (q != 0.0) {
      f += 2.0 * q * m.K;
      ephi += 2.0 * q * m.E;
    }
  }
  if (F != nullptr) *F = f;
  if (Ephi != nullptr) *Ephi = ephi;
}
