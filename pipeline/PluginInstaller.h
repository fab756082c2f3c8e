#pragma once

#include "pipeline/UserWorkflows.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace quirepad {

class WorkflowLibrary;

// Installs a plugin package (".qpdplugin", into the user's plugin folder)
// or a filter package (".qpdfilter", into the filter folder): a zip archive
// unpacked flat into a private temporary folder (removed afterwards), whose
// first property list names the package ("name", optionally
// "description"). After the user agreed, every file of the archive is
// copied into the target folder; a file already there is kept, never
// replaced. Then the workflow lists are refreshed.
class PluginInstaller
{
public:
    enum class Outcome {
        Installed,
        Declined, // the user answered "No"
        Refused,  // not a package, unsafe, damaged, or without metadata
        Failed,   // some files could not be copied into the target folder
    };

    struct Result {
        Outcome outcome = Outcome::Refused;
        QString name;
        QString description;
        QString targetFolder;
        QStringList installed; // paths written into the target folder
        QStringList kept;      // paths that were already there
        QString error;
        QString unpackFolder;  // the temporary folder used (gone afterwards)
        std::int64_t unpackedBytes = 0;
    };

    static constexpr const char* kMissingMetadata
        = "The plugin archive doesn't contain necessary metadata, aborting installation";

    explicit PluginInstaller(WorkflowLibrary* library = nullptr);

    // Interactive (the default): asks before installing and shows why a
    // package was refused. Otherwise the caller has the user's consent
    // already and reports the result itself.
    void setInteractive(bool interactive) { m_interactive = interactive; }

    // The kind a package path stands for, by its extension.
    static std::optional<WorkflowKind> kindOf(const QString& packagePath);
    static bool isPackage(const QString& path) { return kindOf(path).has_value(); }

    Result install(const QString& packagePath);

private:
    Result refuse(Result result, const QString& why) const;
    void copyInto(const QString& from, const QStringList& names, Result& result) const;

    WorkflowLibrary* m_library = nullptr;
    bool m_interactive = true;
};

} // namespace quirepad
