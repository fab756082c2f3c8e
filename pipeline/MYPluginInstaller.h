#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>

namespace quirepad {

// Installs a zip archive of files: unpacked flat into a private temporary
// folder (removed afterwards), its first property list names it ("name",
// optionally "description"); after the user agreed, every file of the
// archive is copied into the install folder, a file already there kept,
// never replaced.
class MYPluginInstaller
{
public:
    enum class Outcome {
        Installed,
        Declined, // the user answered "No"
        Refused,  // not such an archive, unsafe, damaged, or without metadata
        Failed,   // some files could not be copied into the install folder
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

    MYPluginInstaller() = default;
    virtual ~MYPluginInstaller() = default;
    MYPluginInstaller(const MYPluginInstaller&) = delete;
    MYPluginInstaller& operator=(const MYPluginInstaller&) = delete;

    // The extension of the archives taken ("zip" when none is set).
    void setPluginExtension(const QString& extension) { m_pluginExtension = extension; }
    // The install folder; path variables allowed ("${APP_SUPPORT_PLUGINS}"
    // when none is set).
    void setPluginDirectory(const QString& directory) { m_pluginDirectory = directory; }
    QString pluginDirectory() const;
    virtual QStringList pluginFileTypes() const;

    // Interactive (the default): asks before installing and shows why an
    // archive was refused. Otherwise the caller has the user's consent
    // already and reports the result itself.
    void setInteractive(bool interactive) { m_interactive = interactive; }

    virtual Result installPluginFile(const QString& path);

protected:
    // After files were copied in.
    virtual void finishedInstalling() {}
    Result refuse(Result result, const QString& why) const;

private:
    void processFiles(const QString& from, const QStringList& names, Result& result) const;

    QString m_pluginExtension;
    QString m_pluginDirectory;
    bool m_interactive = true;
};

} // namespace quirepad
