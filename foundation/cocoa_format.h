#pragma once

#include <QString>
#include <QVariant>
#include <QVariantList>

namespace quirepad {

// The text form of a value as a message or a path pattern shows it:
// booleans as 1/0, numbers in their shortest form, lists and maps in a
// readable bracketed form, an invalid value as "(null)".
QString objectDescription(const QVariant& value);

// printf-style formatting over variant arguments, with the object
// conversion "%@" beside the usual ones (%d %i %u %ld %lu %lld %x %X %o
// %f %e %g %c %s %%). Width, precision and flags apply to the numeric
// conversions. A missing argument prints as "(null)".
QString cocoaFormat(const QString& format, const QVariantList& args);

} // namespace quirepad
