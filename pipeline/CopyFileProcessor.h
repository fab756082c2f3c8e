#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

namespace quirepad {

// Delivers one file to one destination: computes the output name from the
// pattern, compresses and filters a working copy, and copies the result to
// its place. The plain folder destination; subclasses change where the file
// goes (outputDir) and what is done with it (copyTempFile).
class CopyFileProcessor
{
public:
    CopyFileProcessor();
    virtual ~CopyFileProcessor();

    CopyFileProcessor(const CopyFileProcessor&) = delete;
    CopyFileProcessor& operator=(const CopyFileProcessor&) = delete;

    bool do_compress = false;
    bool do_overwrite = false;
    QString name_pattern;
    QString tranform;
    QVariantMap config;
    QVariantMap context; // the job info: TITLE, USER, HOST, NAME, ...
    QString resultFile;
    // The destination's name as the user knows it, for notifications.
    QString destinationLabel;
    // Off in a long batch, whose progress tells the user instead.
    bool notifies = true;

    void setContext(const QVariantMap& jobInfo) { context = jobInfo; }

    // Whether processFile only reads its file and copies it (a plain folder
    // delivery without compression, filter or save panel).
    bool readsSourceOnly() const;
    // An open, checked descriptor of the file processFile will be given as
    // path: reads go through it, never through the path (a shared spool
    // whose names are not to be trusted). Only for readsSourceOnly().
    void setSource(const QString& path, int fd)
    {
        m_sourcePath = path;
        m_sourceFd = fd;
    }
    // Moves the source to a path instead of copying it: answers 0, or the
    // errno (EXDEV: another file system; then it is copied). A source that
    // is given up anyway (a spool job) is moved when it can be.
    using Mover = std::function<int(const QByteArray& target, bool replace)>;
    void setMover(Mover mover) { m_mover = std::move(mover); }
    // Whether the source was moved to resultFile rather than copied.
    bool sourceMoved() const { return m_sourceMoved; }

    // The folder to deliver into; a null string delivers nothing.
    virtual QString outputDir();
    QString sanitizeName(const QString& name) const;

    // Compress, filter, then copy. False when nothing could be delivered
    // (no folder, or an error the user has been told about): the caller
    // keeps the job. True when delivered or the user cancelled.
    virtual bool processFile(const QString& path);
    // False only when the user cancelled the save panel.
    virtual bool copyTempFile(const QString& source, const QString& target);
    // Tells the user the document went out: the headline text with the
    // document's title and the destination; a written file can be opened
    // or shown in its folder from the notification.
    void notifySucessTitle(const QString& text, const QString& path);

    // Places whose files do not last (the private temporary area, the
    // system's temporary folders, the shared spool): a file from there is
    // copied somewhere lasting before an application opens it.
    static QStringList temporaryPlaces();
    static bool isInTemporaryPlace(const QString& path);

    bool failed() const { return !m_failure.isEmpty(); }
    // The hidden files deliveries are written as before they are complete:
    // ".quirepad-<pid>-<random>.part" in the target's folder.
    static QString partialFilePrefix();
    // A failed write, as a sentence: "<target> could not be written: the
    // disk is full."
    static QString writeFailure(const QString& target, int error);
    QString failureReason() const { return m_failure; }

protected:
    // Writes source to target under a temporary name in the target's
    // folder and renames it into place; on an error the user is told, the
    // failure recorded and false answered.
    // Without replace, a target name taken meanwhile is never replaced:
    // target becomes the next free name.
    bool deliverCopy(const QString& source, QString& target, bool replace = true);
    // Creates the target's folder (and its parents); false, with the
    // failure set, when it cannot be made.
    bool makeFolderFor(const QString& target);
    // Records the failure; shows it unless the user was already told.
    void fail(const QString& reason, bool tellUser = true);
    // Only the plain folder processor posts "File Copied".
    virtual bool isPlainFolderProcessor() const { return true; }

private:
    QString m_failure;
    QString m_sourcePath;
    int m_sourceFd = -1; // not owned
    Mover m_mover;
    bool m_sourceMoved = false;
};

} // namespace quirepad
