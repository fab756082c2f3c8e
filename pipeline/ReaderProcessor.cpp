#include "pipeline/ReaderProcessor.h"

#include "foundation/ProcessRunner.h"
#include "foundation/Shutdown.h"
#include "foundation/TempArea.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/safefile.h"
#include "pipeline/VolumeEjector.h"

#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QStringDecoder>

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcReader, "quirepad.delivery.reader", QtInfoMsg)

namespace {

constexpr std::chrono::minutes kMailerTimeout{2};

// The first bytes of a regular file, read without following a link or
// waiting on a device or pipe planted under that name.
QByteArray fileHead(const QString& path, qsizetype size)
{
    const UniqueFd fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    QByteArray head(size, '\0');
    const ssize_t got = ::read(fd.get(), head.data(), size_t(size));
    head.resize(got > 0 ? got : 0);
    return head;
}

QString decodedText(const QByteArray& bytes)
{
    const auto encoding = QStringConverter::encodingForData(bytes);
    QStringDecoder decoder(encoding.value_or(QStringConverter::Utf8));
    return decoder.decode(bytes);
}

} // namespace

ReaderProcessor::ReaderProcessor()
    : m_listVolumes(&ReaderProcessor::removableVolumes)
    , m_isRunning([] { return !Shutdown::isRequested(); })
{
}

QString ReaderProcessor::notFoundText()
{
    return QStringLiteral("Kindle not found. Please connected it to your Mac using USB cable and try again.");
}

QString ReaderProcessor::mailerMissingText()
{
    return QStringLiteral("The 'Send to Kindle' app may not be installed properly.");
}

bool ReaderProcessor::byMail() const
{
    return config.value(QStringLiteral("transfer_type")).toInt() == 1;
}

bool ReaderProcessor::isRemovableMountPoint(const QString& root)
{
    static const QLatin1String places[] = {QLatin1String("/media/"), QLatin1String("/run/media/"),
                                           QLatin1String("/mnt/")};
    const bool removable = std::any_of(std::begin(places), std::end(places),
                                       [&root](QLatin1String place) { return root.startsWith(place); });
    // Hidden mount points are not offered either.
    return (removable || root == QLatin1String("/mnt")) && !root.contains(QLatin1String("/."));
}

QStringList ReaderProcessor::removableVolumes()
{
    QStringList roots;
    for (const QStorageInfo& volume : QStorageInfo::mountedVolumes()) {
        if (!volume.isValid() || !volume.isReady() || volume.isReadOnly())
            continue;
        if (isRemovableMountPoint(volume.rootPath()))
            roots << volume.rootPath();
    }
    roots.sort();
    roots.removeDuplicates();
    return roots;
}

QString ReaderProcessor::readerDocumentsFolder(const QString& root)
{
    const QString version = decodedText(fileHead(root + QStringLiteral("/system/version.txt"), 256));
    if (!version.startsWith(QLatin1String("Kindle ")))
        return {};
    const QString documents = root + QStringLiteral("/documents");
    const QFileInfo info(documents);
    if (info.isSymLink() || !info.isDir())
        return {};
    return documents;
}

QString ReaderProcessor::outputDir()
{
    m_volume.clear();
    if (byMail()) {
        // The mail program may read the attachment after this job is done:
        // the copy lives a day.
        const QString folder = TempArea::instance().makeLastingDir();
        if (folder.isEmpty())
            fail(QStringLiteral("no private temporary folder could be made for the mail to the reader"));
        return folder;
    }
    for (const QString& root : m_listVolumes()) {
        if (!m_isRunning()) {
            fail(QStringLiteral("the delivery was stopped while looking for the Kindle"), false);
            return {};
        }
        const QString documents = readerDocumentsFolder(root);
        if (documents.isEmpty())
            continue;
        m_volume = root;
        qCInfo(lcReader).noquote() << "reader found at" << root;
        return documents;
    }
    MYDisplayAlert(notFoundText());
    fail(QStringLiteral("no Kindle is connected"), false);
    return {};
}

bool ReaderProcessor::copyTempFile(const QString& source, const QString& target)
{
    if (!CopyFileProcessor::copyTempFile(source, target))
        return false;
    if (failed())
        return true;
    if (byMail()) {
        if (!mailToReader(resultFile))
            MYDisplayAlert(mailerMissingText());
    } else if (config.value(QStringLiteral("eject_kindle")).toBool() && !m_volume.isEmpty()) {
        // Unmounting writes the copy out; the folder is gone afterwards, so
        // there is nothing left to flush.
        VolumeEjector ejector(m_volume);
        if (ejector.eject())
            qCInfo(lcReader).noquote() << "ejected" << m_volume;
        else
            qCWarning(lcReader).noquote() << "the Kindle was not ejected:" << ejector.errorString();
        resultFile.clear();
    }
    notifySucessTitle(QStringLiteral("PDF sent to the Kindle"), QString());
    return true;
}

bool ReaderProcessor::mailToReader(const QString& file)
{
    const QString address = config.value(QStringLiteral("reader_email")).toString().trimmed();
    // An address is never taken for an option of the mailer.
    if (address.isEmpty() || address.startsWith(QLatin1Char('-'))) {
        qCWarning(lcReader) << "no reader e-mail address is set";
        return false;
    }
    const QString mailer = QStandardPaths::findExecutable(QStringLiteral("xdg-email"));
    if (mailer.isEmpty()) {
        qCWarning(lcReader) << "xdg-email is not installed";
        return false;
    }
    QString title = context.value(QStringLiteral("TITLE")).toString();
    if (title.isEmpty())
        title = path_basename_noext(file);
    const ProcessRunner::Result result = ProcessRunner(mailer, {QStringLiteral("--attach"), file, QStringLiteral("--subject"),
                                                                title, address})
                                             .setTimeout(kMailerTimeout)
                                             .setForwardInput(false)
                                             .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                                             .run();
    if (!result.succeeded()) {
        qCWarning(lcReader).noquote() << "xdg-email failed (status" << result.exitCode << "):"
                                      << QString::fromLocal8Bit(result.standardError).trimmed();
        return false;
    }
    qCInfo(lcReader).noquote() << "mailed" << file << "to" << address;
    return true;
}

} // namespace quirepad
