#include "foundation/data_ext.h"
#include "foundation/string_ext.h"

#include <QRandomGenerator>
#include <QTest>

using namespace quirepad;

namespace {

constexpr qsizetype kMiB = 1 << 20;

// Log-like text: compresses the way the program's own files do.
QByteArray textBytes(qsizetype size)
{
    QByteArray bytes;
    bytes.reserve(size);
    for (int line = 0; bytes.size() < size; ++line)
        bytes += "2024-05-01 12:00:" + QByteArray::number(line % 60) + " job " + QByteArray::number(line)
            + " printed to /home/user/Documents/out.pdf\n";
    bytes.truncate(size);
    return bytes;
}

QByteArray randomBytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(7);
    generator.fillRange(reinterpret_cast<quint32*>(bytes.data()), size / 4);
    return bytes;
}

// About 100 KiB of HTML-ish text with markup, accents, typography and CJK.
QString htmlText()
{
    const QString paragraph = QStringLiteral(
        "<p class=\"note\">Caf\u00e9 & cr\u00e8me \u2014 \u201cquoted\u201d text, 5 < 6 > 4, "
        "\u4e2d\u6587 and \u20ac10.</p>\n");
    QString text;
    while (text.size() * 2 < 100 * 1024)
        text += paragraph;
    return text;
}

} // namespace

class BenchFoundation : public QObject
{
    Q_OBJECT

private slots:
    void gzipDeflate_data();
    void gzipDeflate();
    void gzipInflate_data();
    void gzipInflate();
    void escapeHTML();
    void escapeAsciiHTML();
    void unescapeHTML();
    void md5();
};

void BenchFoundation::gzipDeflate_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::newRow("text 1 MiB") << textBytes(kMiB);
    QTest::newRow("random 1 MiB") << randomBytes(kMiB);
}

void BenchFoundation::gzipDeflate()
{
    QFETCH(QByteArray, input);
    std::optional<QByteArray> packed;
    QBENCHMARK {
        packed = quirepad::gzipDeflate(input);
    }
    QVERIFY(packed.has_value());
}

void BenchFoundation::gzipInflate_data()
{
    gzipDeflate_data();
}

void BenchFoundation::gzipInflate()
{
    QFETCH(QByteArray, input);
    const QByteArray packed = quirepad::gzipDeflate(input).value();
    std::optional<QByteArray> unpacked;
    QBENCHMARK {
        unpacked = quirepad::gzipInflate(packed);
    }
    QCOMPARE(unpacked.value_or(QByteArray()).size(), input.size());
}

void BenchFoundation::escapeHTML()
{
    const QString text = htmlText();
    QString escaped;
    QBENCHMARK {
        escaped = stringByEscapingForHTML(text);
    }
    QVERIFY(escaped.size() > text.size());
}

void BenchFoundation::escapeAsciiHTML()
{
    const QString text = htmlText();
    QString escaped;
    QBENCHMARK {
        escaped = stringByEscapingForAsciiHTML(text);
    }
    QVERIFY(escaped.size() > text.size());
}

void BenchFoundation::unescapeHTML()
{
    const QString escaped = stringByEscapingForAsciiHTML(htmlText());
    QString text;
    QBENCHMARK {
        text = stringByUnescapingFromHTML(escaped);
    }
    QCOMPARE(text, htmlText());
}

void BenchFoundation::md5()
{
    const QByteArray data = randomBytes(kMiB);
    QString digest;
    QBENCHMARK {
        digest = md5HexDigest(data);
    }
    QCOMPARE(digest.size(), 32);
}

QTEST_MAIN(BenchFoundation)
#include "bench_foundation.moc"
