#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QVariantMap>

namespace quirepad {

// The table of path variables (APP_RESOURCES, APP_SUPPORT_PLUGINS, ...)
// that placeholders in paths expand against. Built once, on first use, from
// the application folder and the environment of that moment.
class GlobalEnv
{
public:
    // The process-wide table. Callers only read it.
    static QVariantMap& instance();

    // Builds a table for an application folder and an environment, in the
    // fixed order: APP_RESOURCES, APP_CONTENTS, APP_PATH, APP_NAME, then the
    // MYGlobalEnv dictionary of Info.plist (which may override those four),
    // then APP_PLUGINS and the five per-user folders (which it never can).
    static QVariantMap build(const QString& appPath, const QProcessEnvironment& environment);

    // The application folder: "../share/quirepad" from the running
    // executable, the same in a build tree and an installed tree.
    static QString applicationPath();
};

} // namespace quirepad
