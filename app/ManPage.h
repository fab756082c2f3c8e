#pragma once

#include <QString>

namespace quirepad {

class CommandLine;

// The manual page quirepad(1) in roff, made from the registered commands
// and the table of settings, so it says what the program does.
class ManPage
{
public:
    explicit ManPage(const CommandLine& commandLine);

    QString text() const;

    // Text made safe for roff: backslashes, hyphens, and a leading dot or
    // quote are escaped.
    static QString escaped(const QString& text);

private:
    const CommandLine& m_commandLine;
};

} // namespace quirepad
