#include "TestRegistry.h"

#include "capture/CaptureTitle.h"
#include "capture/PrintInfo.h"
#include "capture/WebCaptureParameters.h"

#include <QFile>
#include <QTest>

#include <plist/plist.h>

#include <cstdlib>

using namespace quirepad;

namespace {

QByteArray xmlPlist(const QByteArray& dictBody)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\"><dict>"
        + dictBody + "</dict></plist>";
}

// A binary property list: PaperSize Legal, landscape, 36 pt on the left.
QByteArray binaryPlist()
{
    plist_t dict = plist_new_dict();
    plist_dict_set_item(dict, "PaperSize", plist_new_string("Legal"));
    plist_dict_set_item(dict, "Orientation", plist_new_uint(1));
    plist_dict_set_item(dict, "LeftMargin", plist_new_real(36.0));
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(dict, &bytes, &length);
    QByteArray result(bytes, qsizetype(length));
    std::free(bytes);
    plist_free(dict);
    return result;
}

QString defaultPaper()
{
    return PrintInfo::defaults().pageSize.key();
}

} // namespace

class PrintInfoTest : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("paper"); // QPageSize key, "" = the default
        QTest::addColumn<QSizeF>("points"); // portrait size, checked when valid
        QTest::addColumn<bool>("landscape");
        QTest::addColumn<QMarginsF>("margins"); // left, top, right, bottom

        const QMarginsF none;
        QTest::newRow("empty") << QByteArray() << QString() << QSizeF() << false << none;
        QTest::newRow("garbage") << QByteArray("\x00\xff garbage <plist", 16) << QString() << QSizeF() << false << none;
        QTest::newRow("truncated xml") << xmlPlist("<key>PaperSize</key><string>A3</string>").left(120) << QString()
                                       << QSizeF() << false << none;
        QTest::newRow("not a dictionary")
            << QByteArray("<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>A3</string></array></plist>")
            << QString() << QSizeF() << false << none;
        QTest::newRow("A4 portrait") << xmlPlist("<key>PaperSize</key><string>A4</string><key>Orientation</key><integer>0</integer>")
                                     << "A4" << QSizeF(595, 842) << false << none;
        QTest::newRow("Letter landscape") << xmlPlist("<key>PaperSize</key><string>Letter</string><key>Orientation</key><integer>1</integer>")
                                          << "Letter" << QSizeF(612, 792) << true << none;
        QTest::newRow("lower case name") << xmlPlist("<key>PaperSize</key><string>a5</string>") << "A5" << QSizeF(420, 595)
                                         << false << none;
        QTest::newRow("iso-a4") << xmlPlist("<key>PaperSize</key><string>iso-a4</string>") << "A4" << QSizeF(595, 842)
                                << false << none;
        QTest::newRow("na-letter") << xmlPlist("<key>PaperSize</key><string>na-letter</string>") << "Letter"
                                   << QSizeF(612, 792) << false << none;
        QTest::newRow("points pair") << xmlPlist("<key>PaperSize</key><string>{300, 400}</string>") << QString()
                                     << QSizeF(300, 400) << false << none;
        QTest::newRow("points pair of a known size") << xmlPlist("<key>PaperSize</key><string>{612,792}</string>")
                                                     << "Letter" << QSizeF(612, 792) << false << none;
        QTest::newRow("unknown name") << xmlPlist("<key>PaperSize</key><string>Napkin</string>") << QString() << QSizeF()
                                      << false << none;
        QTest::newRow("negative pair") << xmlPlist("<key>PaperSize</key><string>{-300, 400}</string>") << QString()
                                       << QSizeF() << false << none;
        QTest::newRow("huge pair") << xmlPlist("<key>PaperSize</key><string>{1e9, 400}</string>") << QString() << QSizeF()
                                   << false << none;
        QTest::newRow("size as a number") << xmlPlist("<key>PaperSize</key><integer>4</integer>") << QString() << QSizeF()
                                          << false << none;
        QTest::newRow("orientation 2") << xmlPlist("<key>Orientation</key><integer>2</integer>") << QString() << QSizeF()
                                       << false << none;
        QTest::newRow("orientation true") << xmlPlist("<key>Orientation</key><true/>") << QString() << QSizeF() << true
                                          << none;
        QTest::newRow("margins") << xmlPlist("<key>PaperSize</key><string>A4</string>"
                                             "<key>LeftMargin</key><real>18</real><key>RightMargin</key><integer>36</integer>"
                                             "<key>TopMargin</key><real>72.5</real><key>BottomMargin</key><real>9</real>")
                                 << "A4" << QSizeF(595, 842) << false << QMarginsF(18, 72.5, 36, 9);
        QTest::newRow("negative and text margins")
            << xmlPlist("<key>LeftMargin</key><real>-18</real><key>TopMargin</key><string>12</string>"
                        "<key>RightMargin</key><string>nan</string><key>BottomMargin</key><string>lots</string>")
            << QString() << QSizeF() << false << QMarginsF(0, 12, 0, 0);
        QTest::newRow("margins wider than the paper")
            << xmlPlist("<key>PaperSize</key><string>A4</string><key>LeftMargin</key><real>400</real><key>RightMargin</key><real>400</real>")
            << "A4" << QSizeF(595, 842) << false << none;
        QTest::newRow("binary") << binaryPlist() << "Legal" << QSizeF(612, 1008) << true << QMarginsF(36, 0, 0, 0);
    }

    void parse()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, paper);
        QFETCH(QSizeF, points);
        QFETCH(bool, landscape);
        QFETCH(QMarginsF, margins);

        const PrintInfo info = PrintInfo::fromPlist(bytes);
        QVERIFY(info.pageSize.isValid());
        QCOMPARE(info.pageSize.key(), paper.isEmpty() && !points.isValid() ? defaultPaper() : info.pageSize.key());
        if (!paper.isEmpty())
            QCOMPARE(info.pageSize.key(), paper);
        if (points.isValid()) {
            const QSizeF size = info.pageSize.size(QPageSize::Point);
            QVERIFY2(qAbs(size.width() - points.width()) < 1 && qAbs(size.height() - points.height()) < 1,
                     qPrintable(QStringLiteral("%1 x %2").arg(size.width()).arg(size.height())));
        } else {
            QCOMPARE(info.pageSize.id(), PrintInfo::defaults().pageSize.id());
        }
        QCOMPARE(info.orientation == QPageLayout::Landscape, landscape);
        QCOMPARE(info.margins, margins);

        const QPageLayout layout = info.pageLayout();
        QVERIFY(layout.isValid());
        QCOMPARE(layout.margins(QPageLayout::Point), margins);
        QCOMPARE(layout.orientation(), info.orientation);
    }

    void defaultFollowsTheLocale()
    {
        QCOMPARE(PrintInfo::defaults().pageSize.key(),
                 QLocale::system().measurementSystem() == QLocale::ImperialUSSystem ? QStringLiteral("Letter")
                                                                                    : QStringLiteral("A4"));
        QCOMPARE(PrintInfo::defaults().orientation, QPageLayout::Portrait);
        QCOMPARE(PrintInfo::defaults().margins, QMarginsF());
    }
};

class CaptureTitleTest : public QObject
{
    Q_OBJECT

private slots:
    void stem_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("stem");

        QTest::newRow("plain") << "Quarterly plan" << "Quarterly plan";
        QTest::newRow("empty") << "" << "Untitled";
        QTest::newRow("spaces only") << "  \t " << "Untitled";
        QTest::newRow("slashes") << "a/b/../c" << "ab..c";
        QTest::newRow("path escape") << "../../etc/passwd" << "etcpasswd";
        QTest::newRow("leading dots") << "...hidden" << "hidden";
        QTest::newRow("dots only") << "..." << "Untitled";
        QTest::newRow("dot after slash") << "/.x" << "x";
        QTest::newRow("NUL") << QString::fromUtf16(u"a\0b", 3) << "ab";
        QTest::newRow("newlines and tabs") << "line one\nline\ttwo\r" << "line one line two";
        QTest::newRow("escape sequence") << "red\x1b[31mtext" << "red [31mtext";
        QTest::newRow("C1 and DEL") << QString::fromUtf16(u"a\u0085b\u007fc") << "a b c";
        QTest::newRow("bidi override") << QString::fromUtf16(u"invoice\u202Efdp.exe") << "invoice fdp.exe";
        QTest::newRow("lone surrogate") << QString::fromUtf16(u"a\xD800z") << "az";
        QTest::newRow("emoji kept") << QString::fromUtf16(u"Plan \U0001F4C4") << QString::fromUtf16(u"Plan \U0001F4C4");
        QTest::newRow("only controls") << "\x01\x02\x03" << "Untitled";
    }

    void stem()
    {
        QFETCH(QString, title);
        QFETCH(QString, stem);
        QCOMPARE(capture_file_stem(title), stem);
    }

    void longTitlesFitTheNameLimit_data()
    {
        QTest::addColumn<QString>("title");
        QTest::newRow("ascii") << QString(400, QLatin1Char('x'));
        QTest::newRow("two-byte") << QString(300, QChar(0xe9));
        QTest::newRow("three-byte") << QString(200, QChar(0x6587));
        QTest::newRow("four-byte") << QString::fromUtf16(u"\U0001F600").repeated(100);
    }

    void longTitlesFitTheNameLimit()
    {
        QFETCH(QString, title);
        const QString stem = capture_file_stem(title);
        const QByteArray name = QFile::encodeName(stem + QStringLiteral(".pdf.title"));
        QVERIFY2(name.size() <= 255, qPrintable(QString::number(name.size())));
        QVERIFY(name.size() > 240); // cut at the limit, not far below it
        QVERIFY(title.startsWith(stem));
        QCOMPARE(QFile::decodeName(QFile::encodeName(stem)), stem); // whole characters only
    }
};

class WebCaptureParametersTest : public QObject
{
    Q_OBJECT

private slots:
    void fromMap()
    {
        const QVariantMap map{{"printinfo", QByteArray("<plist/>")}, {"show_window", true}, {"print_bg", "yes"},
                              {"wait_time", 7}, {"extract_text", 1}, {"javascript_code", "x()"},
                              {"css_code", "p{}"}, {"unknown", 5}};
        const WebCaptureParameters p = WebCaptureParameters::fromVariantMap(map);
        QCOMPARE(p.printinfo, QByteArray("<plist/>"));
        QVERIFY(p.show_window);
        QVERIFY(p.print_bg);
        QCOMPARE(p.wait_time, 7);
        QVERIFY(p.extract_text);
        QCOMPARE(p.javascript_code, QStringLiteral("x()"));
        QCOMPARE(p.css_code, QStringLiteral("p{}"));
        QCOMPARE(WebCaptureParameters::fromVariantMap(p.toVariantMap()).toVariantMap(), p.toVariantMap());
    }

    void defaultsAndBounds()
    {
        const WebCaptureParameters empty = WebCaptureParameters::fromVariantMap({});
        QVERIFY(!empty.show_window && !empty.print_bg && !empty.extract_text);
        QCOMPARE(empty.wait_time, 0);
        QVERIFY(empty.javascript_code.isEmpty() && empty.css_code.isEmpty() && empty.printinfo.isEmpty());
        QCOMPARE(WebCaptureParameters::fromVariantMap({{"wait_time", -5}}).wait_time, 0);
        QCOMPARE(WebCaptureParameters::fromVariantMap({{"wait_time", 1e12}}).wait_time, 3600);
        QCOMPARE(WebCaptureParameters::fromVariantMap({{"wait_time", "three"}}).wait_time, 0);
        QVERIFY(!WebCaptureParameters::fromVariantMap({{"print_bg", "no"}}).print_bg);
    }
};

QUIREPAD_REGISTER_TEST(PrintInfoTest);
QUIREPAD_REGISTER_TEST(CaptureTitleTest);
QUIREPAD_REGISTER_TEST(WebCaptureParametersTest);

#include "tst_printinfo.moc"
