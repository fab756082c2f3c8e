#pragma once

#include <QProcessEnvironment>
#include <QString>

namespace quirepad {

// This user's base folders, by one rule for the whole program: the XDG
// variable when it holds an absolute path (a relative one is ignored),
// else the usual folder under HOME. Read from the environment at each call,
// so every part of the program agrees with every other at any moment.
struct UserFolders {
    QString dataHome;   // $XDG_DATA_HOME, ~/.local/share
    QString cacheHome;  // $XDG_CACHE_HOME, ~/.cache
    QString runtimeDir; // $XDG_RUNTIME_DIR; empty when the session has none

    static UserFolders fromEnvironment(const QProcessEnvironment& environment);
    static UserFolders current() { return fromEnvironment(QProcessEnvironment::systemEnvironment()); }
};

} // namespace quirepad
