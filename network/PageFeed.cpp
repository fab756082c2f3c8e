#include "network/PageFeed.h"

#include "foundation/pathvars.h"
#include "foundation/string_ext.h"
#include "network/HTTPConnection.h"

#include <QDir>
#include <QFileInfo>
#include <QVariantMap>

namespace quirepad {

namespace {

bool isPlainName(const QString& name)
{
    return !name.isEmpty() && !name.contains(u'/') && !name.contains(u'\\') && !name.contains(QLatin1String(".."))
           && !name.contains(QChar(0));
}

} // namespace

PageFeed::PageFeed(const QString& folder)
    : m_folder(folder)
{
}

QString PageFeed::defaultFolder()
{
    return f(QStringLiteral("${APP_CACHES}/RSS Files"));
}

bool PageFeed::receivedString(HTTPConnection& connection, const QString&, const HTTPHead&)
{
    const QString path = connection.requestPath();
    if (path.startsWith(QLatin1String("/file/")))
        answerFile(connection, path.mid(6));
    else if (path.endsWith(QLatin1String(".html")))
        answerIndex(connection);
    else
        answerFeed(connection);
    return true;
}

QStringList PageFeed::fileNames() const
{
    return QDir(m_folder).entryList(QDir::Files | QDir::NoDotAndDotDot, QDir::Name);
}

void PageFeed::answerFile(HTTPConnection& connection, const QString& encodedName) const
{
    const QString name = decodeURL(encodedName);
    const QString path = m_folder + QLatin1Char('/') + name;
    std::unique_ptr<QFile> file = isPlainName(name) ? HTTPConnection::openRegularFile(path) : nullptr;
    if (file)
        connection.returnFileContent(std::move(file), path);
    else
        connection.returnErrorMessage(QStringLiteral("file not found"));
}

void PageFeed::answerIndex(HTTPConnection& connection) const
{
    QString text = QStringLiteral("<HTML><HEAD><TITLE>Quirepad::all printed pages</TITLE></HEAD><BODY><UL>");
    for (const QString& name : fileNames()) {
        text += QStringLiteral("<LI><A HREF=\"/file/%1\">%2</A></LI>")
                    .arg(stringByEscapingForHTML(urlEncodedString(name)), stringByEscapingForHTML(name));
    }
    text += QStringLiteral("</UL></BODY></HTML>");
    // Names are UTF-8: said in the type, so browsers do not guess.
    connection.returnStringContent(text, QStringLiteral("text/html; charset=utf-8"));
}

void PageFeed::answerFeed(HTTPConnection& connection) const
{
    // The feed writer uses each link as its guid, so no digest of the files
    // is made: hashing every file on each request would hold the event loop
    // for as long as the largest file takes to read.
    QVariantList items;
    for (const QString& name : fileNames()) {
        items.append(QVariantMap{
            {QStringLiteral("TITLE"), name},
            {QStringLiteral("DESC"), QString()},
            {QStringLiteral("LINK"), QStringLiteral("/file/%1").arg(name)},
        });
    }
    connection.returnRSSFeed(QVariantMap{
        {QStringLiteral("TITLE"), QStringLiteral("Quirepad Page Feed")},
        {QStringLiteral("DESC"), QStringLiteral("Contains all printer pages")},
        {QStringLiteral("ITEMS"), items},
    });
}

} // namespace quirepad
