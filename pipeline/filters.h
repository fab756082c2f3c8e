#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

namespace quirepad {

// Finding workflows by name: the user's folder first, then the built-ins.
QUrl filter_url(const QString& name);
QUrl plugin_url(const QString& nameOrPath);

// Runs the named filter on a file and answers the path of its output, or
// the input path unchanged when there is no filter ("none" or empty) or
// it failed (the user has been told). The job info reaches the workflow.
QString execute_filter(const QString& inputPath, const QString& filterName, const QVariantMap& jobInfo = {});

// The question shown when a workflow cannot be started; "Find Out More..."
// opens the help page on making workflows runnable.
void askAboutUnrunnableWorkflow();

// Shrinks a PDF in place with the settings of "ReduceFileSize.qfilter":
// only a path ending in lowercase ".pdf" with the flag set, and only a
// strictly smaller result replaces the file; on any failure the file stays
// as it was. The document is rewritten in this process (PdfCompressor:
// lossless rewrite, images drawn finer than the settings' resolution
// reduced to JPEG); Ghostscript runs as well, under the settings' time
// limit, when that rewrite fails or leaves much it cannot reduce, and the
// smallest result wins. The work runs off the calling thread while the
// event loop turns; quitting stops it and leaves the file alone.
void compress_pdf(const QString& path, bool flag);
// The same for several files, two at a time.
void compress_pdfs(const QStringList& paths, bool flag);

// Copies the files into a new temporary folder; the copies' paths.
QStringList make_temp_fl(const QStringList& paths);

// The PDF's Info keywords, with the marker keywords beginning "A7G_p2ip".
bool add_pdf_keyword(const QString& path, const QString& keyword);
QString get_pdf_keyword(const QString& path);
QString rem_pdf_keyword(const QString& path);

} // namespace quirepad
