#include "TestRegistry.h"

#include "foundation/array_ext.h"
#include "foundation/data_ext.h"
#include "foundation/html_entities.h"
#include "foundation/string_ext.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>
#include <QtEndian>

using namespace quirepad;

namespace {

using Codec = std::optional<QByteArray> (*)(const QByteArray&);

QByteArray randomBytes(qsizetype size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    for (char& byte : bytes)
        byte = char(generator.bounded(256));
    return bytes;
}

// Text-like data that compresses well but not trivially.
QByteArray compressibleBytes(qsizetype size)
{
    QByteArray bytes;
    for (int line = 0; bytes.size() < size; ++line)
        bytes += "line " + QByteArray::number(line % 97) + " of the quick brown fox\n";
    bytes.truncate(size);
    return bytes;
}

QString fromUcs4(char32_t codePoint)
{
    return QString::fromUcs4(&codePoint, 1);
}

QVariantMap record(const QString& name, const QVariant& rank)
{
    QVariantMap map { { QStringLiteral("name"), name } };
    if (rank.isValid())
        map.insert(QStringLiteral("rank"), rank);
    return map;
}

QStringList names(const QList<QVariantMap>& maps)
{
    QStringList out;
    for (const QVariantMap& map : maps)
        out << map.value(QStringLiteral("name")).toString();
    return out;
}

} // namespace

Q_DECLARE_METATYPE(Codec)

class CodecsTest : public QObject
{
    Q_OBJECT

private slots:
    void roundTrip_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("short text") << QByteArray("Quirepad prints to anything.");
        QTest::newRow("random 70 KiB") << randomBytes(70 * 1024 + 3, 2);
        QTest::newRow("compressible 1 MiB") << compressibleBytes(1 << 20);
        QTest::newRow("random 1 MiB") << randomBytes(1 << 20, 3);
    }

    void roundTrip()
    {
        QFETCH(QByteArray, input);
        const auto gzip = gzipDeflate(input);
        const auto zlib = zlibDeflate(input);
        QVERIFY(gzip && zlib);
        QCOMPARE(gzip->isEmpty(), input.isEmpty());
        QCOMPARE(gzipInflate(*gzip), input);
        QCOMPARE(gzipInflate(*zlib), input); // gzip inflation takes zlib streams too
        QCOMPARE(zlibInflate(*zlib), input);
    }

    void interoperatesWithOtherImplementations()
    {
        // "Quirepad\n" as written by gzip -n -9; zlib inflation refuses it.
        static const unsigned char kGzip[] = { 0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03, 0x0b, 0x2c,
            0xcd, 0x2c, 0x4a, 0x2d, 0x48, 0x4c, 0xe1, 0x02, 0x00, 0x98, 0xc5, 0xe8, 0xad, 0x09, 0x00, 0x00, 0x00 };
        const QByteArray gzip(reinterpret_cast<const char*>(kGzip), sizeof kGzip);
        QCOMPARE(gzipInflate(gzip), QByteArray("Quirepad\n"));
        QVERIFY(!zlibInflate(gzip).has_value());

        // Our gzip: magic, deflate method, and the length in the trailer.
        const QByteArray input = compressibleBytes(200000);
        const QByteArray ours = gzipDeflate(input).value();
        QCOMPARE(ours.left(3), QByteArray("\x1f\x8b\x08"));
        QCOMPARE(qFromLittleEndian<quint32>(ours.constData() + ours.size() - 4), quint32(input.size()));

        // qCompress writes a 4-byte length followed by a plain zlib stream.
        QCOMPARE(zlibInflate(qCompress(input).mid(4)), input);
        QByteArray framed(4, '\0');
        qToBigEndian(quint32(input.size()), framed.data());
        QCOMPARE(qUncompress(framed + zlibDeflate(input).value()), input);
    }

    void damagedStreamsFail_data()
    {
        QTest::addColumn<Codec>("deflater");
        QTest::addColumn<Codec>("inflater");
        QTest::newRow("gzip") << Codec(&gzipDeflate) << Codec(&gzipInflate);
        QTest::newRow("zlib") << Codec(&zlibDeflate) << Codec(&zlibInflate);
        QTest::newRow("zlib, auto-detected") << Codec(&zlibDeflate) << Codec(&gzipInflate);
    }

    void damagedStreamsFail()
    {
        QFETCH(Codec, deflater);
        QFETCH(Codec, inflater);
        const QByteArray input = compressibleBytes(300000) + randomBytes(20000, 4);
        const QByteArray packed = deflater(input).value();
        QCOMPARE(inflater(packed), input);
        const qsizetype size = packed.size();
        for (const qsizetype cut : { qsizetype(1), qsizetype(2), qsizetype(11), size / 2, size - 5, size - 1 })
            QVERIFY2(!inflater(packed.left(cut)).has_value(), qPrintable(QStringLiteral("cut at %1").arg(cut)));

        QByteArray corrupt = packed;
        corrupt[size / 2] = char(corrupt.at(size / 2) ^ 0x55);
        QVERIFY(!inflater(corrupt).has_value());
        QVERIFY(!inflater(input).has_value());
        QVERIFY(!inflater(randomBytes(64, 5)).has_value());
    }

    void digestsAndUtf8()
    {
        QCOMPARE(md5HexDigest(QByteArray("The quick brown fox jumps over the lazy dog")),
            QStringLiteral("9e107d9d372bb6826bd81d3542a419d6"));
        // A text digest stops at the first NUL, a byte digest does not.
        QCOMPARE(md5HexDigest(QStringLiteral("abc") + QChar(0) + QStringLiteral("def")),
            md5HexDigest(QStringLiteral("abc")));
        QVERIFY(md5HexDigest(QByteArray("abc\0def", 7)) != md5HexDigest(QByteArray("abc")));

        const QString empty = quirepad::utf8String(QByteArray());
        QVERIFY(empty.isEmpty() && !empty.isNull());
        QVERIFY(quirepad::utf8String(QByteArray("caf\xe9")).isNull());
    }

    void escapeTablesAreConsistent()
    {
        QCOMPARE(gUnicodeHTMLEscapeMap.size(), std::size_t(33));
        QCOMPARE(gAsciiHTMLEscapeMap.size(), std::size_t(253));
        const HTMLEscapeTable tables[] = { gUnicodeHTMLEscapeMap, gAsciiHTMLEscapeMap };
        for (const HTMLEscapeTable table : tables) {
            for (std::size_t i = 0; i < table.size(); ++i) {
                if (i > 0)
                    QVERIFY2(table[i - 1].value < table[i].value, table[i].entity); // sorted for binary search
                const QByteArray entity(table[i].entity);
                QVERIFY2(entity.startsWith('&') && entity.endsWith(';'), table[i].entity);
            }
        }
        for (const HTMLEscapeMap& entry : gUnicodeHTMLEscapeMap) {
            const HTMLEscapeMap* ascii = findHTMLEscape(gAsciiHTMLEscapeMap, entry.value);
            QVERIFY2(ascii && qstrcmp(ascii->entity, entry.entity) == 0, entry.entity);
        }
        // Every named entity escapes to and unescapes from its character.
        for (const HTMLEscapeMap& entry : gAsciiHTMLEscapeMap) {
            const QString entity = QLatin1String(entry.entity);
            const QString character(QChar(entry.value));
            QCOMPARE(stringByEscapingForAsciiHTML(character), entity);
            QCOMPARE(stringByUnescapingFromHTML(entity), character);
        }
    }

    void escapeHTML_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("forHTML");
        QTest::addColumn<QString>("forAscii");
        QTest::newRow("markup") << "a < b & \"c\" > 'd';#1" << "a &lt; b &amp; &quot;c&quot; &gt; &apos;d&apos;;#1"
                                << "a &lt; b &amp; &quot;c&quot; &gt; &apos;d&apos;;#1";
        QTest::newRow("latin-1") << "caf\u00e9 \u00a0" << "caf\u00e9 \u00a0" << "caf&eacute; &nbsp;";
        QTest::newRow("typographic") << "\u2014\u20ac\u0152" << "&mdash;&euro;&OElig;" << "&mdash;&euro;&OElig;";
        QTest::newRow("cjk") << "\u4e2d" << "\u4e2d" << "&#20013;";
        QTest::newRow("surrogate pair") << fromUcs4(U'\U0001F600') << fromUcs4(U'\U0001F600') << "&#55357;&#56832;";
    }

    void escapeHTML()
    {
        QFETCH(QString, input);
        QFETCH(QString, forHTML);
        QFETCH(QString, forAscii);
        QCOMPARE(stringByEscapingForHTML(input), forHTML);
        QCOMPARE(stringByEscapingForAsciiHTML(input), forAscii);
        QCOMPARE(stringByUnescapingFromHTML(forAscii), input);
    }

    void unescapeHTML_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        QTest::newRow("one level") << "&amp;lt;" << "&lt;";
        QTest::newRow("named, case matters") << "&LT;&Eacute;&eacute;" << "&LT;\u00c9\u00e9";
        QTest::newRow("longest name") << "&thetasym;" << "\u03d1";
        QTest::newRow("unknown name") << "&bogus;" << "&bogus;";
        QTest::newRow("no semicolon") << "a &amp b" << "a &amp b";
        QTest::newRow("3 chars") << "&a;" << "&a;";
        QTest::newRow("10 chars") << "&#0000065;" << "A";
        QTest::newRow("11 chars") << "&#00000065;" << "&#00000065;";
        QTest::newRow("zero") << "&#0;" << "&#0;";
        QTest::newRow("65534") << "&#65534;" << QString(QChar(0xfffe));
        QTest::newRow("65535") << "&#65535;" << "&#65535;";
        QTest::newRow("hex") << "&#x41;&#X6a;" << "Aj";
        QTest::newRow("hex too big") << "&#x10000;" << "&#x10000;";
        QTest::newRow("malformed numbers") << "&#12a;&#+65;&#-65;&#;&#x;" << "&#12a;&#+65;&#-65;&#;&#x;";
        QTest::newRow("ampersand inside") << "&l&gt;" << "&l>";
    }

    void unescapeHTML()
    {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        QCOMPARE(stringByUnescapingFromHTML(input), expected);
    }

    void urlEncoding_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        QTest::newRow("space") << "a b" << "a%20b";
        QTest::newRow("query delimiters") << "a=b&c+d?e" << "a%3Db%26c%2Bd%3Fe";
        QTest::newRow("never legal") << "<\"#%>{}|\\^`[]" << "%3C%22%23%25%3E%7B%7D%7C%5C%5E%60%5B%5D";
        QTest::newRow("kept") << "AZaz09-._~!$'()*,/:;@" << "AZaz09-._~!$'()*,/:;@";
        QTest::newRow("utf-8 and control") << "\u00e9\u4e2d\n" << "%C3%A9%E4%B8%AD%0A";
        QTest::newRow("beyond BMP") << fromUcs4(U'\U0001F600') << "%F0%9F%98%80";
    }

    void urlEncoding()
    {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        QCOMPARE(urlEncodedString(input), expected);
        QCOMPARE(stringURLEncoded(input), expected);
        QCOMPARE(decodeURL(expected), input);
    }

    void xmlEncoding()
    {
        const QString raw = QStringLiteral("<a href=\"x\">'&amp;'</a> \u00e9");
        const QString encoded = QStringLiteral("&lt;a href=&quot;x&quot;&gt;&apos;&amp;amp;&apos;&lt;/a&gt; \u00e9");
        QCOMPARE(xmlEncodedString(raw), encoded);
        QCOMPARE(stringXMLEncoded(raw), encoded);
        QCOMPARE(quirepad::decodeXML(encoded), raw);
    }

    void decodeXML_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        QTest::newRow("numeric") << "&#65;&#x42;&#x6a;" << "ABj";
        QTest::newRow("beyond BMP") << "&#x1F600;&#128512;" << fromUcs4(U'\U0001F600') + fromUcs4(U'\U0001F600');
        QTest::newRow("one level") << "&amp;lt;&amp;#65;" << "&lt;&#65;";
        QTest::newRow("not XML") << "&nbsp;&eacute;" << "&nbsp;&eacute;";
        QTest::newRow("invalid numbers") << "&#0;&#xD800;&#x110000;&#X41;&#12a;"
                                         << "&#0;&#xD800;&#x110000;&#X41;&#12a;";
        QTest::newRow("unterminated, stray") << "&lt &amp &&lt;& ;" << "&lt &amp &<& ;";
    }

    void decodeXML()
    {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        QCOMPARE(quirepad::decodeXML(input), expected);
    }

    void textHelpers()
    {
        QCOMPARE(trim(QStringLiteral(" \t\r\n x y \n\r\t ")), QStringLiteral("x y"));
        QCOMPARE(trim(QStringLiteral("\vx\f")), QStringLiteral("\vx\f"));
        QCOMPARE(trim(QStringLiteral("\u00a0x\u00a0")), QStringLiteral("\u00a0x\u00a0"));
        QCOMPARE(normalizeNL(QStringLiteral("a\r\nb\rc\nd\r\r\n")), QStringLiteral("a\nb\nc\nd\n\n"));
        QCOMPARE(decodeURL(QStringLiteral("%e4%b8%adx%2bz+")), QStringLiteral("\u4e2dx+z+")); // "+" stays
        const QString text = QStringLiteral("Hello, world");
        // Must pick the case-sensitivity overload, not the start index one.
        QCOMPARE(indexOfString(text, QStringLiteral("WORLD"), Qt::CaseInsensitive), 7);
        QCOMPARE(indexOfString(text, QStringLiteral("o"), 9), -1);
        QCOMPARE(substring(text, 7, 99), QStringLiteral("world"));
        QCOMPARE(substring(text, 5, 2), QString());
        QCOMPARE(capitalizedFirstChar(fromUcs4(U'\U00010428') + QStringLiteral("x")),
            fromUcs4(U'\U00010400') + QStringLiteral("x"));
        const QRegularExpression canonical(QStringLiteral("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$"));
        QVERIFY(canonical.match(stringByGeneratingUUID()).hasMatch());
    }

    void regularExpressions()
    {
        const QString text = QStringLiteral("a1 b22 c333");
        QCOMPARE(matchAll(text, QStringLiteral("\\d+")), (QStringList { "1", "22", "333" }));
        // "$10" with a single group is group 1 followed by "0"; "\$" is a dollar.
        QCOMPARE(stringByReplacingRegExpPattern(text, QStringLiteral("(\\d+)"), QStringLiteral("$10\\$\\\\")),
            QStringLiteral("a10$\\ b220$\\ c3330$\\"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^Invalid regular expression")));
        QCOMPARE(stringByReplacingRegExpPattern(text, QStringLiteral("("), QStringLiteral("x")), text);
    }

    void listHelpers()
    {
        const QList<QVariantMap> maps = { record("one", 1), record("none", {}), record("two", 2.5), record("uno", 1),
            record("nada", {}) };
        const QString rank = QStringLiteral("rank");
        QCOMPARE(names(arrayWithUniqueValuesForKey(maps, rank)), (QStringList { "one", "none", "two" }));
        // Stable, numbers as numbers, missing values first.
        QCOMPARE(names(sortedArrayUsingKey(maps, rank)), (QStringList { "none", "nada", "one", "uno", "two" }));
        QCOMPARE(names(sortedArrayUsingKey(maps, rank, false)), (QStringList { "two", "one", "uno", "none", "nada" }));

        const QList<int> list = { 1, 2, 3, 2, 4 };
        QCOMPARE(objectsCommonToArray(list, { 2, 4, 9 }), (QList<int> { 2, 2, 4 }));
        QCOMPARE(objectsNotInCommonToArray(list, { 2, 4, 9 }), (QList<int> { 1, 3 }));
        QVERIFY(containsAllObjectIn(list, QList<int> {}));
        QVERIFY(!containsAnyObjectIn(list, QList<int> {}));
        QCOMPARE(firstObjectMatching(list, [](const int& n) { return n % 2 == 0; }).value_or(-1), 2);
    }

    void topObjectsIsInclusive()
    {
        const QStringList list = { "a", "b", "c", "d" };
        QCOMPARE(topObjects(list, 2), (QStringList { "a", "b", "c" }));
        QCOMPARE(topObjects(list, 0), QStringList { "a" });
        QCOMPARE(topObjects(list, 10), list);
        QCOMPARE(topObjects(list, -1), QStringList());
    }
};

QUIREPAD_REGISTER_TEST(CodecsTest);
#include "tst_codecs.moc"
