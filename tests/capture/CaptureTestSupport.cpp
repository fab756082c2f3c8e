#include "CaptureTestSupport.h"

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace quirepad::test {

namespace {

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace

QString useTestCacheHome()
{
    static QTemporaryDir dir;
    static const bool set = [] {
        qputenv("XDG_CACHE_HOME", QFile::encodeName(dir.path()));
        return true;
    }();
    Q_UNUSED(set)
    return dir.path();
}

QString pdfText(const QString& pdf)
{
    return run(QStringLiteral("pdftotext"), {QStringLiteral("-layout"), pdf, QStringLiteral("-")});
}

int pdfImageCount(const QString& pdf)
{
    const QString list = run(QStringLiteral("pdfimages"), {QStringLiteral("-list"), pdf});
    if (list.isEmpty())
        return -1;
    // Two lines of heading, then one line an image.
    return int(list.split(QLatin1Char('\n'), Qt::SkipEmptyParts).size()) - 2;
}

QString pdfPageSize(const QString& pdf)
{
    const QString info = run(QStringLiteral("pdfinfo"), {pdf});
    const QRegularExpressionMatch m = QRegularExpression(QStringLiteral("Page size:\\s+([0-9.]+) x ([0-9.]+) pts")).match(info);
    if (!m.hasMatch())
        return QString();
    return QStringLiteral("%1 x %2").arg(qRound(m.captured(1).toDouble())).arg(qRound(m.captured(2).toDouble()));
}

QStringList capturedPdfs()
{
    QStringList found;
    QDirIterator it(useTestCacheHome() + QStringLiteral("/Quirepad/opened"), {QStringLiteral("*.pdf")}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        found << it.next();
    found.sort();
    return found;
}

} // namespace quirepad::test
