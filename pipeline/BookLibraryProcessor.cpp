#include "pipeline/BookLibraryProcessor.h"

#include "foundation/ProcessRunner.h"
#include "foundation/fileutil.h"

#include <QDir>
#include <QLoggingCategory>
#include <QStandardPaths>

#include <chrono>

namespace quirepad {

Q_LOGGING_CATEGORY(lcLibrary, "quirepad.delivery.library", QtInfoMsg)

namespace {

constexpr std::chrono::minutes kCalibreTimeout{2};

QString configText(const QVariantMap& config, const char* key)
{
    return config.value(QString::fromLatin1(key)).toString().trimmed();
}

} // namespace

BookLibraryProcessor::BookLibraryProcessor(Library library)
    : m_library(library)
{
}

QString BookLibraryProcessor::outputDir()
{
    // A folder of its own: the name the pattern gives never collides.
    const QString folder = mk_temp_dir();
    if (folder.isEmpty())
        fail(QStringLiteral("no private temporary folder could be made for the e-book library"));
    return folder;
}

QString BookLibraryProcessor::libraryFolder()
{
    const QString documents = qEnvironmentVariable("XDG_DOCUMENTS_DIR");
    const QString base = QDir::isAbsolutePath(documents) ? documents : QDir::homePath() + QStringLiteral("/Documents");
    return QDir::cleanPath(base) + QStringLiteral("/Books");
}

QString BookLibraryProcessor::authorFolderName(const QString& author)
{
    QString name = author;
    name.replace(QLatin1Char('/'), QLatin1Char(';'));
    name.remove(QChar(0));
    name = name.trimmed();
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return QStringLiteral("Unknown");
    return fit_file_name(name, 200);
}

QString BookLibraryProcessor::successText() const
{
    return m_library == Library::Books ? QStringLiteral("PDF sent to the Books app")
                                       : QStringLiteral("File synchronized with iTunes");
}

bool BookLibraryProcessor::copyTempFile(const QString& source, const QString& target)
{
    if (!CopyFileProcessor::copyTempFile(source, target))
        return false;
    if (failed())
        return true;
    QString author = configText(config, "author_name");
    if (author.isEmpty())
        author = QStringLiteral("Unknown");
    const QString copy = resultFile;
    const QString calibredb = QStandardPaths::findExecutable(QStringLiteral("calibredb"));
    const bool added = calibredb.isEmpty() ? addToFolder(copy, author) : addWithCalibre(calibredb, copy, author);
    if (!added)
        return true;
    notifySucessTitle(successText(), QString());
    return true;
}

bool BookLibraryProcessor::addWithCalibre(const QString& calibredb, const QString& file, const QString& author)
{
    QString title = context.value(QStringLiteral("TITLE")).toString();
    if (title.isEmpty())
        title = path_basename_noext(file);
    QStringList arguments{QStringLiteral("add")};
    const QString library = configText(config, "library_path");
    if (!library.isEmpty())
        arguments << QStringLiteral("--with-library") << library;
    arguments << QStringLiteral("--authors") << author << QStringLiteral("--title") << title
              << file; // an absolute path: never taken for an option
    const ProcessRunner::Result result = ProcessRunner(calibredb, arguments)
                                             .setTimeout(kCalibreTimeout)
                                             .setForwardInput(false)
                                             .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                                             .run();
    if (!result.succeeded()) {
        const QString detail = QString::fromLocal8Bit(result.standardError).trimmed();
        QString why = !result.started ? QStringLiteral("it could not be started")
                      : result.timedOut ? QStringLiteral("it did not finish in time")
                                        : QStringLiteral("it ended with status %1").arg(result.exitCode);
        if (!detail.isEmpty())
            why += QStringLiteral(" (%1)").arg(detail.section(QLatin1Char('\n'), -1));
        fail(QStringLiteral("“%1” could not be added to the calibre library: %2.").arg(title, why));
        return false;
    }
    qCInfo(lcLibrary).noquote() << "added" << title << "by" << author << "to the calibre library"
                                << (library.isEmpty() ? QStringLiteral("(default)") : library);
    // calibre keeps its own copy; the temporary one is not worth flushing.
    resultFile.clear();
    return true;
}

bool BookLibraryProcessor::addToFolder(const QString& file, const QString& author)
{
    QString target = libraryFolder() + QLatin1Char('/') + authorFolderName(author) + QLatin1Char('/')
                     + path_basename(file);
    if (!deliverCopy(file, target, false))
        return false;
    resultFile = target;
    return true;
}

} // namespace quirepad
