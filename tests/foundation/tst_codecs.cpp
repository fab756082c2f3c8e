#include "TestRegistry.h"

#include "foundation/array_ext.h"
#include "foundation/data_ext.h"
#include "foundation/html_entities.h"
#include "foundation/string_ext.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSet>
#include <QTest>
#include <QtEndian>

using namespace quirepad;

namespace {

using Codec = std::optional<QByteArray> (*)(const QByteArray&);

QByteArray randomBytes(qsizetype size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    generator.fillRange(reinterpret_cast<quint32*>(bytes.data()), size / 4);
    for (qsizetype i = size / 4 * 4; i < size; ++i)
        bytes[i] = char(generator.bounded(256));
    return bytes;
}

// Text-like data that compresses well but not trivially.
QByteArray compressibleBytes(qsizetype size)
{
    QByteArray bytes;
    bytes.reserve(size);
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
    QVariantMap map{{QStringLiteral("name"), name}};
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
        QTest::newRow("one byte") << QByteArray("x");
        QTest::newRow("short text") << QByteArray("Quirepad prints to anything.");
        QTest::newRow("random 3 bytes") << randomBytes(3, 1);
        QTest::newRow("random 70 KiB") << randomBytes(70 * 1024 + 3, 2);
        QTest::newRow("compressible 1 MiB") << compressibleBytes(1 << 20);
        QTest::newRow("zeros 1 MiB") << QByteArray(1 << 20, '\0');
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
        QCOMPARE(gzipInflate(*zlib), input);
        QCOMPARE(zlibInflate(*zlib), input);
    }

    void containerHeaders()
    {
        const QByteArray text = compressibleBytes(5000);
        const QByteArray gzip = gzipDeflate(text).value();
        QCOMPARE(gzip.left(3), QByteArray("\x1f\x8b\x08"));
        // ISIZE trailer: the uncompressed length, little-endian.
        QCOMPARE(qFromLittleEndian<quint32>(gzip.constData() + gzip.size() - 4), quint32(text.size()));

        const QByteArray zlib = zlibDeflate(text).value();
        QCOMPARE(quint8(zlib.at(0)), quint8(0x78)); // deflate, 32 KiB window
        QCOMPARE((quint8(zlib.at(0)) * 256 + quint8(zlib.at(1))) % 31, 0);
        QVERIFY(zlib.size() < text.size() / 4);
    }

    void zlibInflateRejectsGzip()
    {
        for (const QByteArray& input : {QByteArray("abc"), compressibleBytes(100000)})
            QVERIFY(!zlibInflate(gzipDeflate(input).value()).has_value());
    }

    void truncatedStreamsFail_data()
    {
        QTest::addColumn<Codec>("deflater");
        QTest::addColumn<Codec>("inflater");
        QTest::newRow("gzip") << Codec(&gzipDeflate) << Codec(&gzipInflate);
        QTest::newRow("zlib") << Codec(&zlibDeflate) << Codec(&zlibInflate);
        QTest::newRow("zlib, auto-detected") << Codec(&zlibDeflate) << Codec(&gzipInflate);
    }

    void truncatedStreamsFail()
    {
        QFETCH(Codec, deflater);
        QFETCH(Codec, inflater);
        const QByteArray input = compressibleBytes(300000) + randomBytes(20000, 4);
        const QByteArray packed = deflater(input).value();
        QCOMPARE(inflater(packed), input);

        const qsizetype cuts[] = {1, 2, 5, 11, packed.size() / 3, packed.size() / 2, packed.size() - 5,
                                  packed.size() - 1};
        for (const qsizetype cut : cuts) {
            const auto result = inflater(packed.left(cut));
            QVERIFY2(!result.has_value(), qPrintable(QStringLiteral("cut at %1").arg(cut)));
        }
    }

    void corruptOrForeignInputFails()
    {
        const QByteArray input = compressibleBytes(50000);
        QByteArray corrupt = gzipDeflate(input).value();
        corrupt[corrupt.size() / 2] = char(corrupt.at(corrupt.size() / 2) ^ 0x55);
        QVERIFY(!gzipInflate(corrupt).has_value());

        QVERIFY(!gzipInflate(input).has_value());
        QVERIFY(!zlibInflate(input).has_value());
        QVERIFY(!zlibInflate(QByteArray("x")).has_value());
        QVERIFY(!gzipInflate(QByteArray(1, '\x1f')).has_value());
        QVERIFY(!gzipInflate(randomBytes(64, 5)).has_value());
    }

    void interoperatesWithOtherImplementations()
    {
        // "Quirepad\n" as written by gzip -n -9.
        static const unsigned char kGzip[] = {0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03,
                                              0x0b, 0x2c, 0xcd, 0x2c, 0x4a, 0x2d, 0x48, 0x4c, 0xe1, 0x02,
                                              0x00, 0x98, 0xc5, 0xe8, 0xad, 0x09, 0x00, 0x00, 0x00};
        const QByteArray gzip(reinterpret_cast<const char*>(kGzip), sizeof kGzip);
        QCOMPARE(gzipInflate(gzip), QByteArray("Quirepad\n"));
        QVERIFY(!zlibInflate(gzip).has_value());

        // qCompress writes a 4-byte length followed by a plain zlib stream.
        const QByteArray input = compressibleBytes(200000);
        QCOMPARE(zlibInflate(qCompress(input).mid(4)), input);
        QByteArray framed(4, '\0');
        qToBigEndian(quint32(input.size()), framed.data());
        QCOMPARE(qUncompress(framed + zlibDeflate(input).value()), input);
    }

    void md5Digests()
    {
        QCOMPARE(md5HexDigest(QByteArray()), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
        QCOMPARE(md5HexDigest(QByteArray("The quick brown fox jumps over the lazy dog")),
                 QStringLiteral("9e107d9d372bb6826bd81d3542a419d6"));
        QCOMPARE(md5HexDigest(QStringLiteral("abc")), QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));
        QCOMPARE(md5HexDigest(QStringLiteral("\u00e9")), md5HexDigest(QByteArray("\xc3\xa9")));
        const QString withNul = QStringLiteral("abc") + QChar(0) + QStringLiteral("def");
        QCOMPARE(md5HexDigest(withNul), md5HexDigest(QStringLiteral("abc")));
        QCOMPARE(md5HexDigest(QByteArray("abc\0def", 7)).size(), 32);
        QVERIFY(md5HexDigest(QByteArray("abc\0def", 7)) != md5HexDigest(QByteArray("abc")));
    }

    void utf8String()
    {
        QCOMPARE(quirepad::utf8String(QByteArray("caf\xc3\xa9")), QStringLiteral("caf\u00e9"));
        const QString empty = quirepad::utf8String(QByteArray());
        QVERIFY(empty.isEmpty() && !empty.isNull());
        QVERIFY(quirepad::utf8String(QByteArray("caf\xe9")).isNull());
        QVERIFY(quirepad::utf8String(QByteArray("\xc3")).isNull());
    }

    void escapeTablesAreConsistent()
    {
        QCOMPARE(gUnicodeHTMLEscapeMap.size(), std::size_t(33));
        QCOMPARE(gAsciiHTMLEscapeMap.size(), std::size_t(253));
        const HTMLEscapeTable tables[] = {gUnicodeHTMLEscapeMap, gAsciiHTMLEscapeMap};
        for (const HTMLEscapeTable table : tables) {
            QSet<QByteArray> names;
            for (std::size_t i = 0; i < table.size(); ++i) {
                if (i > 0)
                    QVERIFY2(table[i - 1].value < table[i].value, table[i].entity);
                const QByteArray entity(table[i].entity);
                QVERIFY2(entity.startsWith('&') && entity.endsWith(';'), table[i].entity);
                QVERIFY2(!names.contains(entity), table[i].entity);
                names.insert(entity);
            }
        }
        for (const HTMLEscapeMap& entry : gUnicodeHTMLEscapeMap) {
            const HTMLEscapeMap* ascii = findHTMLEscape(gAsciiHTMLEscapeMap, entry.value);
            QVERIFY2(ascii && qstrcmp(ascii->entity, entry.entity) == 0, entry.entity);
        }
        QCOMPARE(int(gAsciiHTMLEscapeMap.front().value), int('"'));
        QCOMPARE(QByteArray(gAsciiHTMLEscapeMap.back().entity), QByteArray("&diams;"));
        QVERIFY(findHTMLEscape(gAsciiHTMLEscapeMap, u'a') == nullptr);
    }

    void everyNamedEntityRoundTrips()
    {
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
        QTest::newRow("empty") << QString() << QString() << QString();
        QTest::newRow("markup") << "a < b & \"c\" > 'd'" << "a &lt; b &amp; &quot;c&quot; &gt; &apos;d&apos;"
                                << "a &lt; b &amp; &quot;c&quot; &gt; &apos;d&apos;";
        QTest::newRow("latin-1") << "caf\u00e9 \u00a0" << "caf\u00e9 \u00a0" << "caf&eacute; &nbsp;";
        QTest::newRow("typographic") << "\u2014\u20ac\u0152" << "&mdash;&euro;&OElig;" << "&mdash;&euro;&OElig;";
        QTest::newRow("cjk") << "\u4e2d" << "\u4e2d" << "&#20013;";
        QTest::newRow("surrogate pair") << fromUcs4(U'\U0001F600') << fromUcs4(U'\U0001F600') << "&#55357;&#56832;";
        QTest::newRow("ascii untouched") << "plain text 123;#" << "plain text 123;#" << "plain text 123;#";
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
        QTest::newRow("no ampersand") << "a;b" << "a;b";
        QTest::newRow("one level") << "&amp;lt;" << "&lt;";
        QTest::newRow("mixed") << "x &lt; y &amp;&amp; z&gt;" << "x < y && z>";
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
        QTest::newRow("trailing junk") << "&#12a;" << "&#12a;";
        QTest::newRow("signs") << "&#+65;&#-65;" << "&#+65;&#-65;";
        QTest::newRow("no digits") << "&#;&#x;" << "&#;&#x;";
        QTest::newRow("built semicolon") << "&lt&#59;" << "&lt;";
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
        QTest::newRow("utf-8") << "\u00e9\u4e2d" << "%C3%A9%E4%B8%AD";
        QTest::newRow("control") << "\n\t" << "%0A%09";
    }

    void urlEncoding()
    {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        QCOMPARE(urlEncodedString(input), expected);
        QCOMPARE(stringURLEncoded(input), expected);
    }

    void urlDecodingRoundTrips()
    {
        const QStringList samples = {QString(), QStringLiteral("a+b c&d=e%f"), QStringLiteral("\u00e9t\u00e9 \u4e2d"),
                                     fromUcs4(U'\U0001F600') + QStringLiteral("?x=1")};
        for (const QString& sample : samples)
            QCOMPARE(decodeURL(urlEncodedString(sample)), sample);
        QCOMPARE(decodeURL(QStringLiteral("%E4%B8%ADx%2bz+")), QStringLiteral("\u4e2dx+z+"));
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
        QTest::newRow("plain") << "a;b" << "a;b";
        QTest::newRow("numeric") << "&#65;&#x42;&#x6a;" << "ABj";
        QTest::newRow("beyond BMP") << "&#x1F600;&#128512;" << fromUcs4(U'\U0001F600') + fromUcs4(U'\U0001F600');
        QTest::newRow("one level") << "&amp;lt;&amp;#65;" << "&lt;&#65;";
        QTest::newRow("not XML") << "&nbsp;&eacute;" << "&nbsp;&eacute;";
        QTest::newRow("invalid numbers") << "&#0;&#xD800;&#x110000;&#X41;&#12a;"
                                         << "&#0;&#xD800;&#x110000;&#X41;&#12a;";
        QTest::newRow("unterminated") << "&lt &amp" << "&lt &amp";
        QTest::newRow("stray ampersands") << "&&lt;& ;" << "&<& ;";
    }

    void decodeXML()
    {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        QCOMPARE(quirepad::decodeXML(input), expected);
    }

    void trimAndLineEnds()
    {
        QCOMPARE(trim(QStringLiteral(" \t\r\n x y \n\r\t ")), QStringLiteral("x y"));
        QCOMPARE(trim(QStringLiteral("\vx\f")), QStringLiteral("\vx\f"));
        QCOMPARE(trim(QStringLiteral("\u00a0x\u00a0")), QStringLiteral("\u00a0x\u00a0"));
        QCOMPARE(trim(QStringLiteral(" \r\n")), QString());
        QCOMPARE(normalizeNL(QStringLiteral("a\r\nb\rc\nd\r\r\n")), QStringLiteral("a\nb\nc\nd\n\n"));
    }

    void splitUsing()
    {
        const QString text = QStringLiteral(" a b\t\tc\n");
        QCOMPARE(quirepad::splitUsing(text), (QStringList{"a", "b", "c"}));
        QCOMPARE(quirepad::splitUsing(text, QStringLiteral("\n\t "), true),
                 (QStringList{" ", "a", " ", "b", "\t", "\t", "c", "\n"}));
        QCOMPARE(quirepad::splitUsing(QStringLiteral("k=v;;x"), QStringLiteral("=;")), (QStringList{"k", "v", "x"}));
    }

    void textHelpers()
    {
        const QString text = QStringLiteral("Hello, world");
        QCOMPARE(indexOfCharacter(text, u'z'), -1);
        QCOMPARE(indexOfString(text, QStringLiteral("WORLD")), -1);
        // Must pick the case-sensitivity overload, not the start index one.
        QCOMPARE(indexOfString(text, QStringLiteral("WORLD"), Qt::CaseInsensitive), 7);
        QCOMPARE(indexOfString(text, QStringLiteral("o"), 9), -1);
        QCOMPARE(lastIndexOfString(text, QStringLiteral("lo!")), -1);
        QCOMPARE(substring(text, 7, 12), QStringLiteral("world"));
        QCOMPARE(substring(text, 7, 99), QStringLiteral("world"));
        QCOMPARE(substring(text, 5, 2), QString());
        QVERIFY(isWhitespaceCharacterAtIndex(text, 6));
        QVERIFY(!isWhitespaceCharacterAtIndex(text, 12));
        QVERIFY(!isWhitespaceCharacterAtIndex(text, -1));
        QCOMPARE(capitalizedFirstChar(QStringLiteral("\u00e9t\u00e9")), QStringLiteral("\u00c9t\u00e9"));
        QCOMPARE(capitalizedFirstChar(fromUcs4(U'\U00010428') + QStringLiteral("x")),
                 fromUcs4(U'\U00010400') + QStringLiteral("x"));
        const QString uuid = stringByGeneratingUUID();
        const QRegularExpression canonical(QStringLiteral("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$"));
        QVERIFY(canonical.match(uuid).hasMatch());
        QVERIFY(uuid != stringByGeneratingUUID());
    }

    void regularExpressions()
    {
        const QString text = QStringLiteral("a1 b22 c333");
        QCOMPARE(matches(text, QStringLiteral("\\d+")), 3);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^Invalid regular expression")));
        QCOMPARE(matches(text, QStringLiteral("(")), 0);
        QCOMPARE(matchFirst(text, QStringLiteral("[a-z]\\d{2}")), QStringLiteral("b22"));
        QVERIFY(matchFirst(text, QStringLiteral("x")).isNull());
        QCOMPARE(matchAll(text, QStringLiteral("\\d+")), (QStringList{"1", "22", "333"}));
        QCOMPARE(stringByReplacingRegExpPattern(text, QStringLiteral("([a-z])(\\d+)"), QStringLiteral("$2$1")),
                 QStringLiteral("1a 22b 333c"));
        // "$10" with a single group is group 1 followed by "0"; "\$" is a dollar.
        QCOMPARE(stringByReplacingRegExpPattern(text, QStringLiteral("(\\d+)"), QStringLiteral("$10\\$\\\\")),
                 QStringLiteral("a10$\\ b220$\\ c3330$\\"));
        QCOMPARE(stringByReplacingRegExpPattern(text, QStringLiteral("[b-c]"), QStringLiteral("$0$0")),
                 QStringLiteral("a1 bb22 cc333"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^Invalid regular expression")));
        QCOMPARE(stringByReplacingRegExpPattern(text, QStringLiteral("("), QStringLiteral("x")), text);
    }

    void uniqueValues()
    {
        QCOMPARE(arrayWithUniqueValues(QVariantList{3, "a", 3, 1, "a", 2}), (QVariantList{3, "a", 1, 2}));
        const QList<QVariantMap> maps = {record("one", 1), record("two", 2), record("uno", 1), record("none", {}),
                                         record("nada", {}), record("deux", 2)};
        QCOMPARE(names(arrayWithUniqueValuesForKey(maps, QStringLiteral("rank"))), (QStringList{"one", "two", "none"}));
    }

    void sortedByKey()
    {
        const QList<QVariantMap> maps = {record("c", 3), record("a1", 1), record("none", {}), record("b", 2.5),
                                         record("a2", 1)};
        const QString rank = QStringLiteral("rank");
        QCOMPARE(names(sortedArrayUsingKey(maps, rank)), (QStringList{"none", "a1", "a2", "b", "c"}));
        QCOMPARE(names(sortedArrayUsingKey(maps, rank, false)), (QStringList{"c", "b", "a1", "a2", "none"}));
        QCOMPARE(names(sortedArrayUsingKey(maps, QStringLiteral("name"))), (QStringList{"a1", "a2", "b", "c", "none"}));
    }

    void setOperations()
    {
        const QList<int> list = {1, 2, 3, 2, 4};
        const QList<int> other = {2, 4, 9};
        QCOMPARE(objectsCommonToArray(list, other), (QList<int>{2, 2, 4}));
        QCOMPARE(objectsNotInCommonToArray(list, other), (QList<int>{1, 3}));
        QCOMPARE(countObjectsCommonToArray(list, other), 3);
        QVERIFY(!containsAllObjectIn(list, other));
        QVERIFY(containsAllObjectIn(list, QList<int>{4, 1}));
        QVERIFY(containsAllObjectIn(list, QList<int>{}));
        QVERIFY(containsAnyObjectIn(list, other));
        QVERIFY(!containsAnyObjectIn(list, QList<int>{7, 8}));
        QVERIFY(!containsAnyObjectIn(list, QList<int>{}));
    }

    void topObjectsIsInclusive()
    {
        const QStringList list = {"a", "b", "c", "d"};
        QCOMPARE(topObjects(list, 2), (QStringList{"a", "b", "c"}));
        QCOMPARE(topObjects(list, 0), QStringList{"a"});
        QCOMPARE(topObjects(list, 3), list);
        QCOMPARE(topObjects(list, 10), list);
        QCOMPARE(topObjects(list, -1), QStringList());
        QCOMPARE(topObjects(list, -5), QStringList());
    }

    void joinAndPredicates()
    {
        QCOMPARE(join(QStringList{"a", "b", "c"}, QStringLiteral(", ")), QStringLiteral("a, b, c"));
        QCOMPARE(join(QVariantList{1, true, 2.5, "x"}, QStringLiteral("|")), QStringLiteral("1|1|2.5|x"));
        QCOMPARE(join(QList<int>{}, QStringLiteral("|")), QString());

        const QList<int> list = {1, 4, 6, 7};
        const auto even = [](const int& n) { return n % 2 == 0; };
        QVERIFY(containsObjectMatching(list, even));
        QCOMPARE(firstObjectMatching(list, even).value_or(-1), 4);
        QVERIFY(!firstObjectMatching(list, [](const int& n) { return n > 10; }).has_value());
        QCOMPARE(objectsMatching(list, even), (QList<int>{4, 6}));

        const QList<QVariantMap> maps = {record("a", 1), record("b", 2), record("c", 2)};
        const auto rankTwo = [](const QVariantMap& map) { return map.value(QStringLiteral("rank")) == 2; };
        QCOMPARE(valueForKeyMatching(maps, QStringLiteral("name"), rankTwo), QVariant(QStringLiteral("b")));
        QVERIFY(!valueForKeyMatching(maps, QStringLiteral("name"), [](const QVariantMap&) { return false; }).isValid());
    }
};

QUIREPAD_REGISTER_TEST(CodecsTest);
#include "tst_codecs.moc"
