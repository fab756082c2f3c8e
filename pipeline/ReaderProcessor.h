#pragma once

#include "pipeline/CopyFileProcessor.h"

#include <QStringList>

#include <functional>

namespace quirepad {

// Delivers to an e-reader. Over USB (config "transfer_type" other than 1):
// into the "documents" folder of the first mounted reader volume, whose
// "system/version.txt" begins with "Kindle ", then ejected when config
// "eject_kindle" is set. With "transfer_type" 1: a copy in a private
// temporary folder mailed with xdg-email to config "reader_email".
class ReaderProcessor : public CopyFileProcessor
{
public:
    // The root paths of the volumes a reader may be mounted at, in the
    // order they are tried.
    using VolumeLister = std::function<QStringList()>;
    // Answers false when the batch has been stopped.
    using RunningCheck = std::function<bool()>;

    ReaderProcessor();

    void setVolumeLister(VolumeLister lister) { m_listVolumes = std::move(lister); }
    void setRunningCheck(RunningCheck check) { m_isRunning = std::move(check); }

    QString outputDir() override;
    bool copyTempFile(const QString& source, const QString& target) override;

    // The root of the reader found by outputDir (empty before, or by mail).
    QString readerVolume() const { return m_volume; }

    // Writable, ready, visible volumes mounted under /media, /run/media or
    // /mnt, sorted by root path.
    static QStringList removableVolumes();
    // Whether a mount point is one a removable reader may be at.
    static bool isRemovableMountPoint(const QString& root);
    // The reader's documents folder on a volume, or a null string: the
    // volume's "system/version.txt" begins with "Kindle " and "documents"
    // is a folder (not a link).
    static QString readerDocumentsFolder(const QString& root);

    static QString notFoundText();
    static QString mailerMissingText();

protected:
    bool isPlainFolderProcessor() const override { return false; }

private:
    bool byMail() const;
    bool mailToReader(const QString& file);

    VolumeLister m_listVolumes;
    RunningCheck m_isRunning;
    QString m_volume;
};

} // namespace quirepad
