/// @file
/// The whole public interface of qorc.
#ifndef QORC_QORC_H
#define QORC_QORC_H

#include <qorc/export.h>
#include <qorc/types.h>
#include <qorc/char.h>
#include <qorc/string.h>
#include <qorc/error.h>
#include <qorc/memory.h>
#include <qorc/rawstring.h>
#include <qorc/shielding.h>
#include <qorc/numerics.h>
#include <qorc/rsa.h>
#include <qorc/progress.h>
#include <qorc/date.h>
#include <qorc/file.h>
#include <qorc/storage.h>
#include <qorc/chrono.h>
#include <qorc/regkey.h>
#include <qorc/serial.h>

#endif
