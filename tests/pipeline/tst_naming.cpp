#include "TestRegistry.h"

#include "pipeline/BookLibraryProcessor.h"
#include "pipeline/OpenFileProcessor.h"
#include "pipeline/PluginFileProcessor.h"
#include "pipeline/ReaderProcessor.h"
#include "pipeline/SyncFolderProcessor.h"
#include "pipeline/ProcessorFactory.h"
#include "store/ManagedObjectContext.h"
#include "store/SqliteStore.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <pwd.h>
#include <unistd.h>

using namespace quirepad;

namespace {
QString login()
{
    return QString::fromLocal8Bit(getpwuid(getuid())->pw_name);
}
} // namespace

class NamingTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    void sanitizing_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QVariantMap>("context");
        QTest::addColumn<QString>("expected");
        const QVariantMap none;
        QTest::newRow("spool job, no pattern") << "alice-D3F2UG-Report: Q1/Q2.pdf" << "" << none << "Report; Q1;Q2.pdf";
        QTest::newRow("no marker, no pattern: untouched") << "a?b.pdf" << "" << none << "a?b.pdf";
        QTest::newRow("title pattern") << "a?b.pdf" << "%t" << QVariantMap{{"TITLE", "a?b"}} << "a.b.pdf";
        QTest::newRow("fallbacks") << "doc.pdf" << "%u-%h-%t" << none << login() + "-localhost-Unknown.pdf";
        QTest::newRow("context values") << "doc.pdf" << "%u@%h %t" << QVariantMap{{"USER", "ann"}, {"HOST", "lab"}, {"TITLE", "Q"}}
                                        << "ann@lab Q.pdf";
        QTest::newRow("pattern keeps its extension") << "doc.pdf" << "%t.txt" << QVariantMap{{"TITLE", "T"}} << "T.txt";
        QTest::newRow("bare dot without extensions") << "README" << "%t" << QVariantMap{{"TITLE", "T"}} << "T.";
        QTest::newRow("every occurrence") << "x.pdf" << "%t-%t" << QVariantMap{{"TITLE", "A"}} << "A-A.pdf";
        QTest::newRow("character table") << "x.pdf" << "%t" << QVariantMap{{"TITLE", "a/b?c<d>e\\f:g*h|i\"j"}}
                                         << "a;b.c(d)e;f;g#h;i'j.pdf";
        QTest::newRow("unknown placeholder stays") << "x.pdf" << "%x-%t" << QVariantMap{{"TITLE", "T"}} << "%x-T.pdf";
        QTest::newRow("first marker only") << "bob-D3F2UG-x-D3F2UG-y.pdf" << "" << none << "x-D3F2UG-y.pdf";
        QTest::newRow("marker: table applies") << "u-D3F2UG-a:b*c.pdf" << "" << none << "a;b#c.pdf";
        QTest::newRow("blanks and accents stay") << "x.pdf" << "%t" << QVariantMap{{"TITLE", "Zoë résumé 50%"}}
                                                 << "Zoë résumé 50%.pdf";
        QTest::newRow("a dot in the title is an extension") << "x.pdf" << "%t" << QVariantMap{{"TITLE", "v1.2"}} << "v1.2";
        QTest::newRow("slash in title then extension") << "x.ps" << "%t" << QVariantMap{{"TITLE", "Q1/Q2"}} << "Q1;Q2.ps";
        QTest::newRow("remembered from the shortened name") << "ann-D3F2UG-notes.txt" << "Out-%t"
                                                            << QVariantMap{{"TITLE", "N"}} << "Out-N.txt";
    }

    void sanitizing()
    {
        QFETCH(QString, name);
        QFETCH(QString, pattern);
        QFETCH(QVariantMap, context);
        QFETCH(QString, expected);
        CopyFileProcessor processor;
        processor.name_pattern = pattern;
        processor.setContext(context);
        QCOMPARE(processor.sanitizeName(name), expected);
    }

    void outputFolders_data()
    {
        QTest::addColumn<QVariant>("outputDir");
        QTest::addColumn<QString>("expected");
        QTest::newRow("file URL") << QVariant("file:///srv/scans/") << "/srv/scans/";
        QTest::newRow("escaped URL") << QVariant("file:///srv/My%20Scans/") << "/srv/My Scans/";
        QTest::newRow("missing") << QVariant() << "@DESKTOP@";
        QTest::newRow("a path with a blank is no URL") << QVariant("/srv/my scans") << "@DESKTOP@";
    }

    void outputFolders()
    {
        QFETCH(QVariant, outputDir);
        QFETCH(QString, expected);
        CopyFileProcessor processor;
        if (outputDir.isValid())
            processor.config.insert("output_dir", outputDir);
        expected.replace("@DESKTOP@", QDir::homePath() + "/Desktop");
        QCOMPARE(processor.outputDir(), expected);
    }

    void typeTable_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("kind");
        QTest::newRow("F") << "F" << "folder";
        QTest::newRow("Z is a folder") << "Z" << "folder";
        QTest::newRow("empty is a folder") << "" << "folder";
        QTest::newRow("O") << "O" << "open";
        QTest::newRow("X") << "X" << "plugin";
        QTest::newRow("B") << "B" << "library";
        QTest::newRow("I") << "I" << "library";
        QTest::newRow("D") << "D" << "sync";
        QTest::newRow("K") << "K" << "reader";
    }

    void typeTable()
    {
        QFETCH(QString, type);
        QFETCH(QString, kind);
        std::unique_ptr<CopyFileProcessor> processor = makeProcessorForType(type);
        QString actual = QStringLiteral("folder");
        if (dynamic_cast<OpenFileProcessor*>(processor.get()))
            actual = QStringLiteral("open");
        else if (dynamic_cast<PluginFileProcessor*>(processor.get()))
            actual = QStringLiteral("plugin");
        else if (dynamic_cast<BookLibraryProcessor*>(processor.get()))
            actual = QStringLiteral("library");
        else if (dynamic_cast<SyncFolderProcessor*>(processor.get()))
            actual = QStringLiteral("sync");
        else if (dynamic_cast<ReaderProcessor*>(processor.get()))
            actual = QStringLiteral("reader");
        else if (typeid(*processor) != typeid(CopyFileProcessor))
            actual = QStringLiteral("unknown");
        QCOMPARE(actual, kind);
    }

    void findingTheDestination()
    {
        SqliteStore::OpenError kind;
        QString error;
        ManagedObjectContext context(SqliteStore::open(m_dir.filePath("lookup.db"), &kind, &error));
        DestinationItem* first = context.insertNewEntity("Destination");
        first->setValue("name", "A");
        first->setValue("recid", "r1");
        first->setValue("type", "O");
        DestinationItem* second = context.insertNewEntity("Destination");
        second->setValue("recid", "A");
        second->setValue("name", "Second");
        second->setValue("type", "F");
        second->setBool(true, "do_overwrite");
        second->setValue("tranform", "Monochrome");
        second->setValue("name_pattern", "%t.pdf");
        second->setValue("config", QVariantMap{{"output_dir", "file:///srv/x/"}});

        // The record fetched first wins, whether by name or by recid.
        QVERIFY(dynamic_cast<OpenFileProcessor*>(copyProcessorForName(context, "A").get()));
        std::unique_ptr<CopyFileProcessor> bySecondName = copyProcessorForName(context, "Second");
        QVERIFY(bySecondName);
        QVERIFY(bySecondName->do_overwrite);
        QVERIFY(!bySecondName->do_compress);
        QCOMPARE(bySecondName->tranform, QStringLiteral("Monochrome"));
        QCOMPARE(bySecondName->name_pattern, QStringLiteral("%t.pdf"));
        QCOMPARE(bySecondName->outputDir(), QStringLiteral("/srv/x/"));
        QVERIFY(!copyProcessorForName(context, "a"));      // case-sensitive
        QVERIFY(!copyProcessorForName(context, ""));       // empty matches nothing
        QVERIFY(!copyProcessorForName(context, "second")); // exact
    }
};

QUIREPAD_REGISTER_TEST(NamingTest);
#include "tst_naming.moc"
