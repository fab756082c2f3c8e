#pragma once

#include <QString>

namespace quirepad {

// A page title made into a file name stem: control characters, "/" and NUL
// go, spaces at the ends and leading dots too, and the name is cut (at a
// whole character) so that "<stem>.pdf.title" fits the file-name limit of
// 255 bytes. Nothing left gives "Untitled".
QString capture_file_stem(const QString& title);

} // namespace quirepad
