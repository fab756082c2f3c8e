#pragma once

#include <QString>
#include <QStringList>

namespace quirepad::test {

// Points XDG_CACHE_HOME at a folder of this test process (once, before the
// program's folders are first looked up), so captures land there.
QString useTestCacheHome();

// The text of a PDF (pdftotext), and the images it holds (pdfimages -list).
QString pdfText(const QString& pdf);
int pdfImageCount(const QString& pdf);
// "w x h" in points as pdfinfo says it.
QString pdfPageSize(const QString& pdf);

// Every PDF under the private area's folder of kept files.
QStringList capturedPdfs();

} // namespace quirepad::test
