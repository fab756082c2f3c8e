#include "pipeline/PdfKeywords.h"

#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSaveFile>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFWriter.hh>

#include <exception>

namespace quirepad {

namespace {

QStringList split(const std::string& text)
{
    QStringList keywords;
    for (const QString& part : QString::fromStdString(text).split(u','))
        if (!part.trimmed().isEmpty())
            keywords << part.trimmed();
    return keywords;
}

} // namespace

std::optional<QStringList> PdfKeywords::read(const QString& path)
{
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        const QByteArray fileName = QFile::encodeName(path);
        pdf.processFile(fileName.constData());
        QPDFObjectHandle info = pdf.getTrailer().getKey("/Info");
        if (!info.isDictionary() || !info.getKey("/Keywords").isString())
            return QStringList();
        return split(info.getKey("/Keywords").getUTF8Value());
    } catch (const std::exception& error) {
        qWarning().noquote() << "cannot read the keywords of" << path << ":" << error.what();
        return std::nullopt;
    }
}

bool PdfKeywords::write(const QString& path, const QStringList& keywords)
{
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        const QByteArray fileName = QFile::encodeName(path);
        pdf.processFile(fileName.constData());
        QPDFObjectHandle trailer = pdf.getTrailer();
        QPDFObjectHandle info = trailer.getKey("/Info");
        if (!info.isDictionary()) {
            info = pdf.makeIndirectObject(QPDFObjectHandle::newDictionary());
            trailer.replaceKey("/Info", info);
        }
        if (keywords.isEmpty())
            info.removeKey("/Keywords");
        else
            info.replaceKey("/Keywords",
                            QPDFObjectHandle::newUnicodeString(keywords.join(QStringLiteral(", ")).toStdString()));

        // Written beside the file, then renamed over it.
        const QString temporary = path + QStringLiteral(".quirepad-keywords");
        {
            // QPDFWriter keeps the name pointer until write(): hold the bytes.
            const QByteArray temporaryName = QFile::encodeName(temporary);
            QPDFWriter writer(pdf, temporaryName.constData());
            writer.setStaticID(false);
            writer.write();
        }
        if (::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(path).constData()) != 0) {
            QFile::remove(temporary);
            return false;
        }
        return true;
    } catch (const std::exception& error) {
        qWarning().noquote() << "cannot write the keywords of" << path << ":" << error.what();
        QFile::remove(path + QStringLiteral(".quirepad-keywords"));
        return false;
    }
}

} // namespace quirepad
