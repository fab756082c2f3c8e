#pragma once

#include "network/HTTPConnectionDelegate.h"

#include <QString>
#include <QStringList>

namespace quirepad {

// Serves the files of one folder over an HTTPServer:
//   /file/NAME      the file NAME (URL-decoded) of the folder, else 404
//   any *.html      an index page linking every file
//   anything else   an RSS feed of every file
// A name holding "/", "\", ".." or NUL is answered 404 like a missing file.
class PageFeed : public HTTPConnectionDelegate
{
public:
    explicit PageFeed(const QString& folder);

    // "${APP_CACHES}/RSS Files", expanded.
    static QString defaultFolder();

    QString folder() const { return m_folder; }

    bool receivedString(HTTPConnection& connection, const QString& body, const HTTPHead& head) override;

private:
    // The regular files of the folder by name, without hidden ones; empty
    // when the folder is missing.
    QStringList fileNames() const;
    void answerFile(HTTPConnection& connection, const QString& encodedName) const;
    void answerIndex(HTTPConnection& connection) const;
    void answerFeed(HTTPConnection& connection) const;

    QString m_folder;
};

} // namespace quirepad
