// Setting and removing environment variables in tests, on both systems.
#ifndef QORC_TESTS_SUPPORT_ENVIRONMENT_H
#define QORC_TESTS_SUPPORT_ENVIRONMENT_H

#include <cstdlib>
#include <string>

inline void SetEnv(const char* name, const char* value) {
#ifdef _WIN32
  _putenv_s(name, value);
#else
  setenv(name, value, 1);
#endif
}

inline void UnsetEnv(const char* name) {
#ifdef _WIN32
  _putenv_s(name, "");
#else
  unsetenv(name);
#endif
}

#endif
