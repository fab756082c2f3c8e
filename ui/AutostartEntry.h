#pragma once

#include <QString>

namespace quirepad {

// The desktop's autostart entry that starts Quirepad at login:
// $XDG_CONFIG_HOME/autostart/com.halvern.Quirepad.desktop (~/.config when
// the variable is unset or not a full path).
class AutostartEntry
{
public:
    static QString path();
    static bool isEnabled();
    // Writes the entry (starting this program) or removes it; false with
    // the reason in *error when that fails.
    static bool setEnabled(bool enabled, QString* error);
    // The Exec line of the entry for a program path, quoted as desktop
    // entries quote.
    static QString execLine(const QString& program);
};

} // namespace quirepad
