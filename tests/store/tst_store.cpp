#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/DialogService.h"
#include "foundation/ScriptedDialogService.h"
#include "store/DestinationTemplates.h"
#include "store/MainAppDelegateBase.h"
#include "store/SettingsFileStore.h"
#include "store/SqliteStore.h"
#include "store/listorder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

namespace {

const QString kEntity = QStringLiteral("Destination");

QStringList namesInOrder(ManagedObjectContext& context)
{
    QStringList names;
    const QList<DestinationItem*> items = context.entities(kEntity, Predicate::always(), {{"order", true}}).value();
    for (DestinationItem* item : items)
        names << item->name() + QLatin1Char(':') + QString::number(item->integerForKey("order"));
    return names;
}



// A small tree item for the recursive numbering.
struct Node {
    QString name;
    qint64 order = 0;
    QList<Node*> children;
    QVariant value(const QString&) const { return order; }
    void setInteger(qint64 v, const QString&) { order = v; }
    QList<Node*> childrenForKey(const QString&) const { return children; }
};

} // namespace

class StoreTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    int m_run = 0;
    ScriptedDialogService* m_dialogs = nullptr;

    QString storeDir() const { return MainAppDelegateBase::applicationDocumentsDirectory(); }
    QString storePath() const { return storeDir() + "/Quirepad.internalbd"; }

private slots:
    void initTestCase()
    {
        qputenv("HOME", m_root.filePath("home").toUtf8());
        QDir().mkpath(m_root.filePath("home"));
    }

    void init()
    {
        // Every test starts from an account that has never run the program.
        qputenv("XDG_DATA_HOME", m_root.filePath(QStringLiteral("data%1").arg(++m_run)).toUtf8());
        auto dialogs = std::make_unique<ScriptedDialogService>();
        m_dialogs = dialogs.get();
        DialogService::setCurrent(std::move(dialogs));
    }

    void freshStoreHoldsTheTwoBuiltinsInOrder()
    {
        {
            MainAppDelegateBase delegate;
            delegate.registerDefaults();
            QVERIFY(QFileInfo(storePath()).isFile());
            ManagedObjectContext* context = delegate.managedObjectContext();
            QCOMPARE(namesInOrder(*context), (QStringList{"Open in Preview:1", "Copy to Desktop:2"}));
            QVERIFY(delegate.saveAction());
        }
        MainAppDelegateBase reopened;
        ManagedObjectContext* context = reopened.managedObjectContext();
        QCOMPARE(namesInOrder(*context), (QStringList{"Open in Preview:1", "Copy to Desktop:2"}));
        DestinationItem* desktop = context->firstEntity(kEntity, *Predicate::fromFormat("recid == 'copy_to_desktop'"));
        QVERIFY(desktop);
        QCOMPARE(desktop->type(), QStringLiteral("F"));
        QCOMPARE(desktop->value("name_pattern").toString(), QStringLiteral("%t.pdf"));
        QVERIFY(desktop->boolForKey("is_system"));
        QCOMPARE(desktop->value("config.output_dir").toString(),
                 QUrl::fromLocalFile(m_root.filePath("home/Desktop/")).toString(QUrl::FullyEncoded));
        DestinationItem* preview = context->firstEntity(kEntity, Predicate::equals("recid", "open_in_preview"));
        QCOMPARE(preview->value("config.appid").toString(), QStringLiteral("com.apple.Preview"));
        QVERIFY(!preview->boolForKey("is_system"));
        QVERIFY(!preview->objectAsDictionary().contains("is_system"));
        QCOMPARE(context->entities(kEntity, *Predicate::fromFormat("in_menu == TRUE"))->size(), 2);
        QVERIFY(m_dialogs->interactions().isEmpty());

        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "probe");
        db.setDatabaseName(storePath());
        QVERIFY(db.open());
        QSqlQuery version(db);
        QVERIFY(version.exec("PRAGMA user_version") && version.next());
        QCOMPARE(version.value(0).toInt(), 1);
        db.close();
        db = QSqlDatabase();
        QSqlDatabase::removeDatabase("probe");
    }

    void deletingCopyToDesktopBringsBothBack_data()
    {
        QTest::addColumn<QString>("deleted");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("Copy to Desktop deleted")
            << "copy_to_desktop" << QStringList{"Open in Preview:1", "Open in Preview:1", "Copy to Desktop:2"};
        QTest::newRow("Open in Preview deleted") << "open_in_preview" << QStringList{"Copy to Desktop:2"};
    }

    void deletingCopyToDesktopBringsBothBack()
    {
        QFETCH(QString, deleted);
        QFETCH(QStringList, expected);
        {
            MainAppDelegateBase delegate;
            delegate.registerDefaults();
            delegate.managedObjectContext()->deleteEntities(kEntity, Predicate::equals("recid", deleted));
            QVERIFY(delegate.saveAction());
        }
        MainAppDelegateBase next;
        next.registerDefaults();
        QCOMPARE(namesInOrder(*next.managedObjectContext()), expected);
    }

    void folderThatIsAFileIsReportedEveryTime()
    {
        QDir().mkpath(QFileInfo(storeDir()).path());
        QVERIFY(writeFile(storeDir(), "not a folder"));
        MainAppDelegateBase delegate;
        QVERIFY(!delegate.managedObjectContext());
        QVERIFY(!delegate.managedObjectContext());
        const auto asked = m_dialogs->interactions();
        QCOMPARE(asked.size(), 2);
        QCOMPARE(asked[0].kind, ScriptedDialogService::Kind::Error);
        QCOMPARE(asked[0].message, QStringLiteral("Failed to initialize the application's saved data"));
        QVERIFY2(asked[0].informative.contains(
                     QStringLiteral("Expected a folder to store application data, found a file (%1).").arg(storeDir())),
                 qPrintable(asked[0].informative));
        QCOMPARE(readFile(storeDir()), QByteArray("not a folder")); // left alone
        QVERIFY(delegate.saveAction()); // nothing to save, no crash
    }

    void unreadableStoreIsMovedAside_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("garbage") << "garbage";
        QTest::newRow("another program's database") << "foreign";
        QTest::newRow("from a newer version") << "newer";
    }

    void unreadableStoreIsMovedAside()
    {
        QFETCH(QString, kind);
        QVERIFY(QDir().mkpath(storeDir()));
        if (kind == "garbage") {
            QVERIFY(writeFile(storePath(), QByteArray(4096, 'g')));
        } else {
            QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "maker");
            db.setDatabaseName(storePath());
            QVERIFY(db.open());
            QSqlQuery q(db);
            QVERIFY(q.exec(kind == "foreign" ? "CREATE TABLE other (x)" : "PRAGMA user_version = 99"));
            if (kind == "newer")
                QVERIFY(q.exec("CREATE TABLE destination (id INTEGER PRIMARY KEY)"));
            db.close();
            db = QSqlDatabase();
            QSqlDatabase::removeDatabase("maker");
        }
        const QByteArray original = readFile(storePath());

        MainAppDelegateBase delegate;
        QSignalSpy moved(&delegate, &MainAppDelegateBase::storeMovedAside);
        delegate.registerDefaults();
        QVERIFY(delegate.managedObjectContext());
        QCOMPARE(namesInOrder(*delegate.managedObjectContext()).size(), 2);
        QCOMPARE(moved.size(), 1);
        const QString aside = moved[0][1].toString();
        QVERIFY(aside.startsWith(storePath() + ".unreadable-"));
        QCOMPARE(readFile(aside), original);
        QCOMPARE(m_dialogs->interactions().size(), 1);
        QVERIFY(m_dialogs->interactions()[0].informative.contains(aside));
        QVERIFY(delegate.saveAction());
    }

    void queriesSeeUnsavedChanges()
    {
        MainAppDelegateBase delegate;
        ManagedObjectContext& context = *delegate.managedObjectContext();
        DestinationItem* a = context.insertNewEntity(kEntity);
        a->setValue("name", "b-second");
        a->setValue("recid", "A");
        a->setBool(false, "in_menu");
        DestinationItem* b = context.insertNewEntity(kEntity);
        b->setValue("name", "a-first");
        b->setValue("recid", "B");
        b->setBool(true, "in_menu");
        QVERIFY(!context.insertNewEntity("Unknown"));
        QVERIFY(!context.entities("Unknown", Predicate::always()));

        QCOMPARE(context.entities(kEntity, Predicate::always())->size(), 2);
        QCOMPARE(context.firstEntity(kEntity, Predicate::always(), {{"name", true}}), b);
        QCOMPARE(context.firstEntity(kEntity, Predicate::always(), {{"name", false}}), a);
        QCOMPARE(context.firstEntity(kEntity, *Predicate::fromFormat("in_menu == TRUE")), b);
        QCOMPARE(context.firstEntity(kEntity, *Predicate::fromFormat("in_menu == NO")), a);
        QVERIFY(!context.containsEntity(kEntity, Predicate::equals("recid", "C")));
        QCOMPARE(context.insertOrUpdateEntity(kEntity, Predicate::equals("recid", "A")), a);
        DestinationItem* c = context.insertOrUpdateEntity(kEntity, Predicate::equals("recid", "C"));
        QVERIFY(c && c != a && c != b);
        c->setValue("recid", "C");
        QVERIFY(!Predicate::fromFormat("name LIKE 'x'"));

        const QString temporaryId = a->objectIDString();
        QCOMPARE(context.objectWithIDString(temporaryId), a);
        QString error;
        QVERIFY(context.save(&error));
        QVERIFY(a->objectIDString() != temporaryId);
        QCOMPARE(context.objectWithIDString(a->objectIDString()), a);
        QVERIFY(!context.objectWithIDString(temporaryId));

        context.deleteEntities(kEntity, *Predicate::fromFormat("recid == 'A'"));
        QVERIFY(a->isDeleted());
        QCOMPARE(context.entities(kEntity, Predicate::always())->size(), 2);
        QVERIFY(context.save(&error));

        MainAppDelegateBase reopened;
        QStringList recids;
        for (DestinationItem* item : __get_all_entities(kEntity, *reopened.managedObjectContext()))
            recids << item->recid();
        recids.sort();
        QCOMPARE(recids, (QStringList{"B", "C"}));
    }

    void valuesKeepTheirKindsAndBytes()
    {
        const QByteArray opaque("\x00\xff\x01 not text\n", 13);
        QImage image(4, 4, QImage::Format_ARGB32);
        image.fill(Qt::red);
        {
            MainAppDelegateBase delegate;
            DestinationItem* item = delegate.managedObjectContext()->insertNewEntity(kEntity);
            item->setValue("recid", "kinds");
            item->setValue("rule", opaque);
            item->setValue("keywords", QStringLiteral("plain ü"));
            item->setValue("image", image);
            item->setInteger(-7, "order");
            item->setValue("do_overwrite", "yes");
            item->setValue("config", QVariantMap{{"output_dir", "file:///tmp/x/"}, {"n", 3}});
            item->archiveObject(QVariantMap{{"k", QStringList{"a", "b"}}}, "category");
            QVERIFY(!item->setValue("no_such_attribute", 1));
            QVERIFY(delegate.saveAction());
        }
        MainAppDelegateBase delegate;
        DestinationItem* item = delegate.managedObjectContext()->firstEntity(kEntity, Predicate::equals("recid", "kinds"));
        QVERIFY(item);
        QCOMPARE(item->value("rule").toByteArray(), opaque);
        QCOMPARE(item->value("keywords").toByteArray(), QStringLiteral("plain ü").toUtf8());
        QCOMPARE(item->integerForKey("order"), -7);
        QCOMPARE(item->boolForKey("do_overwrite"), true);
        QCOMPARE(item->boolForKey("do_compress"), false); // absent reads NO
        QCOMPARE(item->value("config.n").toLongLong(), 3);
        QCOMPARE(item->unarchiveObjectForKey("category").toMap().value("k").toStringList(), (QStringList{"a", "b"}));
        QImage back;
        QVERIFY(back.loadFromData(item->value("image").toByteArray(), "PNG"));
        QCOMPARE(back.pixelColor(1, 1), QColor(Qt::red));
        QVERIFY(!item->icon().isNull());
        const QVariantMap dict = item->objectAsDictionary();
        QVERIFY(dict.contains("rule") && !dict.contains("name"));
    }

    void exportAndImportCarryExactlyEightAttributes()
    {
        const QString file = m_root.filePath(QStringLiteral("export%1.quirepad-settings").arg(m_run));
        const QByteArray carried("\x01\x02\xfe", 3);
        {
            MainAppDelegateBase source;
            source.registerDefaults();
            ManagedObjectContext& context = *source.managedObjectContext();
            DestinationItem* folder = DestinationTemplates(context).createDestination("F", "Exported folder");
            folder->setValue("recid", "exported-folder");
            folder->setValue("handler_list", carried);
            folder->setValue("tranform", "Monochrome");
            DestinationItem* desktop = context.firstEntity(kEntity, Predicate::equals("recid", "copy_to_desktop"));
            desktop->setValue("name", "Desk (exported)");
            desktop->setInteger(9, "order");
            QString error;
            QVERIFY2(source.exportTo(file, &error), qPrintable(error));
        }
        // Another account imports the file.
        qputenv("XDG_DATA_HOME", m_root.filePath(QStringLiteral("data%1-target").arg(m_run)).toUtf8());
        MainAppDelegateBase target;
        target.registerDefaults();
        ManagedObjectContext& context = *target.managedObjectContext();
        DestinationItem* desktop = context.firstEntity(kEntity, Predicate::equals("recid", "copy_to_desktop"));
        const QVariantMap desktopConfig = desktop->config();
        QString error;
        QVERIFY2(target.importFrom(file, &error), qPrintable(error));

        // Known recid: name, order and type replaced; its own config stays.
        QCOMPARE(desktop->name(), QStringLiteral("Desk (exported)"));
        QCOMPARE(desktop->integerForKey("order"), 9);
        QCOMPARE(desktop->config(), desktopConfig);
        QVERIFY(desktop->boolForKey("in_menu"));

        // New recid: arrives without config, in_menu and the rest.
        DestinationItem* imported = context.firstEntity(kEntity, Predicate::equals("recid", "exported-folder"));
        QVERIFY(imported);
        QCOMPARE(imported->name(), QStringLiteral("Exported folder"));
        QCOMPARE(imported->type(), QStringLiteral("F"));
        QCOMPARE(imported->value("handler_list").toByteArray(), carried);
        QStringList keys = imported->objectAsDictionary().keys();
        keys.sort();
        QCOMPARE(keys.join(' '), QStringLiteral("handler_list name order recid type"));
        QCOMPARE(context.entities(kEntity, *Predicate::fromFormat("in_menu == TRUE"))->size(), 2);
        QCOMPARE(context.entities(kEntity, Predicate::always())->size(), 3);
    }

    void exportOfOneRecordAndMergingIntoAnExistingFile()
    {
        const QString file = m_root.filePath(QStringLiteral("one%1.quirepad-settings").arg(m_run));
        MainAppDelegateBase delegate;
        delegate.registerDefaults();
        ManagedObjectContext& context = *delegate.managedObjectContext();
        DestinationItem* preview = context.firstEntity(kEntity, Predicate::equals("recid", "open_in_preview"));
        QString error;
        QVERIFY(delegate.exportItemTo(*preview, file, &error));
        std::optional<QList<StoredRecord>> records = SettingsFileStore::parse(readFile(file), &error);
        QVERIFY(records && records->size() == 1);
        QCOMPARE(records->first().values.value("recid").toString(), QStringLiteral("open_in_preview"));
        QVERIFY(!records->first().values.contains("config"));

        // Exporting everything into the same file merges by recid.
        QVERIFY(delegate.exportTo(file, &error));
        records = SettingsFileStore::parse(readFile(file), &error);
        QCOMPARE(records->size(), 2);
    }

    void foreignOrCorruptFilesAreRefused_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::newRow("not XML") << QByteArray("PK\x03\x04 zip bytes", 14);
        QTest::newRow("another XML document") << QByteArray("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>");
        QTest::newRow("newer format") << QByteArray("<quirepad-settings version=\"7\"></quirepad-settings>");
        QTest::newRow("truncated") << QByteArray("<quirepad-settings version=\"1\"><destination><attribute name=\"recid\" kind=\"string\">x");
        QTest::newRow("wrong kind") << QByteArray("<quirepad-settings version=\"1\"><destination><attribute name=\"order\" kind=\"string\">x</attribute></destination></quirepad-settings>");
        QTest::newRow("bad number") << QByteArray("<quirepad-settings version=\"1\"><destination><attribute name=\"order\" kind=\"integer\">two</attribute></destination></quirepad-settings>");
    }

    void foreignOrCorruptFilesAreRefused()
    {
        QFETCH(QByteArray, contents);
        const QString file = m_root.filePath(QStringLiteral("bad%1.quirepad-settings").arg(m_run));
        QVERIFY(writeFile(file, contents));
        MainAppDelegateBase delegate;
        delegate.registerDefaults();
        QString error;
        QVERIFY(!delegate.importFrom(file, &error));
        QVERIFY(error.contains("not a Quirepad settings file"));
        QCOMPARE(delegate.managedObjectContext()->entities(kEntity, Predicate::always())->size(), 2);
        error.clear();
        QVERIFY(!delegate.exportTo(file, &error));
        QVERIFY(!error.isEmpty());
        QCOMPARE(readFile(file), contents); // never overwritten
        QVERIFY(!delegate.importFrom(m_root.filePath("missing.quirepad-settings"), &error));
    }

    void insertionRules_data()
    {
        QTest::addColumn<int>("listSize");
        QTest::addColumn<int>("anchor"); // -1 nil, 99 not in the list
        QTest::addColumn<bool>("after");
        QTest::addColumn<QString>("expected");
        QTest::newRow("after anchor") << 3 << 1 << true << "0 1 x y 2";
        QTest::newRow("after last") << 3 << 2 << true << "0 1 2 x y";
        QTest::newRow("after nil goes first") << 3 << -1 << true << "x y 0 1 2";
        QTest::newRow("after missing goes to index 1") << 3 << 99 << true << "0 x y 1 2";
        QTest::newRow("after into empty appends") << 0 << -1 << true << "x y";
        QTest::newRow("before anchor") << 3 << 1 << false << "0 x y 1 2";
        QTest::newRow("before nil goes first") << 3 << -1 << false << "x y 0 1 2";
        QTest::newRow("before missing goes first") << 3 << 99 << false << "x y 0 1 2";
        QTest::newRow("before into empty appends") << 0 << 99 << false << "x y";
    }

    void insertionRules()
    {
        QFETCH(int, listSize);
        QFETCH(int, anchor);
        QFETCH(bool, after);
        QFETCH(QString, expected);
        std::vector<Node> nodes(5);
        QList<Node*> list;
        for (int i = 0; i < listSize; ++i) {
            nodes[i].name = QString::number(i);
            list << &nodes[i];
        }
        Node outsider{"outsider"};
        nodes[3].name = "x";
        nodes[4].name = "y";
        Node* anchorNode = anchor < 0 ? nullptr : (anchor == 99 ? &outsider : &nodes[anchor]);
        if (after)
            listInsertObjectAfter(list, {&nodes[3], &nodes[4]}, anchorNode);
        else
            listInsertObjectBefore(list, {&nodes[3], &nodes[4]}, anchorNode);
        QStringList names;
        for (Node* n : list)
            names << n->name;
        QCOMPARE(names.join(' '), expected);
        listInsertObjectAfter(list, QList<Node*>{}, anchorNode);
        QCOMPARE(list.size(), listSize + 2);
    }

    void recursiveNumbering()
    {
        Node leaf1{"l1", 7}, leaf2{"l2", 8}, only{"only", 5};
        Node parent{"p", 0, {&leaf2, &leaf1}}, single{"s", 0, {&only}}, plain{"plain", 0};
        listStoreOrderRecursive(QList<Node*>{&plain, &parent, &single}, "order", "children");
        QCOMPARE(plain.order, 1);
        QCOMPARE(parent.order, 2);
        QCOMPARE(single.order, 3);
        QCOMPARE(leaf2.order, 1);
        QCOMPARE(leaf1.order, 2);
        QCOMPARE(only.order, 5); // a single child keeps its number
    }

    void dragReorderNumbersOneToN_data()
    {
        QTest::addColumn<bool>("ascending");
        QTest::addColumn<QString>("moved");
        QTest::addColumn<QString>("inFront"); // "" for a drop at the top
        QTest::addColumn<QString>("displayed");
        QTest::newRow("down") << true << "A" << "C" << "B C A D";
        QTest::newRow("to the top") << true << "C" << "" << "C A B D";
        QTest::newRow("two at once") << true << "A D" << "B" << "B A D C";
        QTest::newRow("descending list") << false << "D" << "C" << "B C D A";
    }

    void dragReorderNumbersOneToN()
    {
        QFETCH(bool, ascending);
        QFETCH(QString, moved);
        QFETCH(QString, inFront);
        QFETCH(QString, displayed);
        MainAppDelegateBase delegate;
        ManagedObjectContext& context = *delegate.managedObjectContext();
        QMap<QString, DestinationItem*> byName;
        const QList<int> initialOrders{0, 3, 3, 10}; // ties and gaps, as after new records
        int i = 0;
        for (const QString& name : {"A", "B", "C", "D"}) {
            DestinationItem* item = context.insertNewEntity(kEntity);
            item->setValue("name", name);
            item->setInteger(initialOrders[i++], "order");
            byName.insert(name, item);
        }
        QList<DestinationItem*> movedItems;
        for (const QString& name : moved.split(' '))
            movedItems << byName[name];
        const SortDescriptor sort{"order", ascending};
        const QList<DestinationItem*> content =
            listPrepareReorder(context.entities(kEntity, Predicate::always()).value(), {}, sort);
        const QList<DestinationItem*> result =
            listDropReorder(content, movedItems, inFront.isEmpty() ? nullptr : byName[inFront], sort);
        QStringList names;
        for (DestinationItem* item : result)
            names << item->name();
        QCOMPARE(names.join(' '), displayed);
        // Re-sorting by the stored numbers shows the same list, numbered 1..n.
        const QList<DestinationItem*> resorted = context.entities(kEntity, Predicate::always(), {sort}).value();
        QCOMPARE(resorted, result);
        QList<qint64> ascendingOrders;
        const QList<DestinationItem*> byOrder = context.entities(kEntity, Predicate::always(), {{"order", true}}).value();
        for (DestinationItem* item : byOrder)
            ascendingOrders << item->integerForKey("order");
        QCOMPARE(ascendingOrders, (QList<qint64>{1, 2, 3, 4}));
    }

    void quitSavesThenEndsOneSecondLater()
    {
        MainAppDelegateBase delegate;
        bool terminated = false;
        delegate.setTerminateHandler([&] { terminated = true; });
        delegate.managedObjectContext();
        QCOMPARE(delegate.applicationShouldTerminate(), MainAppDelegateBase::TerminateReply::Now);

        DestinationTemplates(*delegate.managedObjectContext()).createDestination("F", "Unsaved");
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(delegate.applicationShouldTerminate(), MainAppDelegateBase::TerminateReply::Later);
        QVERIFY(!delegate.managedObjectContext()->hasChanges()); // saved at once
        QVERIFY(!terminated);
        QTRY_VERIFY_WITH_TIMEOUT(terminated, 5000);
        QVERIFY(clock.elapsed() >= 950);

        MainAppDelegateBase reopened;
        QVERIFY(reopened.managedObjectContext()->containsEntity(kEntity, Predicate::equals("name", "Unsaved")));
    }

    void changeCountForcesASave()
    {
        MainAppDelegateBase delegate;
        delegate.managedObjectContext();
        delegate.setChangeCount(2);
        QVERIFY(delegate.saveAction());
        QCOMPARE(delegate.changeCount(), 0);
    }

    void typeTemplates_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<bool>("compress");
        QTest::addColumn<QVariantMap>("config");
        const QString desktop = QUrl::fromLocalFile(m_root.filePath("home/Desktop/")).toString(QUrl::FullyEncoded);
        const QString dropbox = QUrl::fromLocalFile(m_root.filePath("home/Dropbox/Public/")).toString(QUrl::FullyEncoded);
        QTest::newRow("F") << "F" << "Output-%t.pdf" << false << QVariantMap{{"output_dir", desktop}};
        QTest::newRow("D") << "D" << "Output-%t.pdf" << true << QVariantMap{{"output_dir", dropbox}};
        QTest::newRow("I") << "I" << "%t.pdf" << false << QVariantMap{{"author_name", "Quirepad"}};
        QTest::newRow("K") << "K" << "%t.pdf" << true << QVariantMap{};
        QTest::newRow("B") << "B" << "%t.pdf" << true << QVariantMap{};
        QTest::newRow("O") << "O" << "%t.pdf" << false << QVariantMap{{"appid", "com.apple.Preview"}};
        QTest::newRow("unknown") << "Q" << "" << false << QVariantMap{};
    }

    void typeTemplates()
    {
        QFETCH(QString, type);
        QFETCH(QString, pattern);
        QFETCH(bool, compress);
        QFETCH(QVariantMap, config);
        MainAppDelegateBase delegate;
        delegate.registerDefaults();
        ManagedObjectContext& context = *delegate.managedObjectContext();
        m_dialogs->enqueueAnswer(QStringLiteral("  My destination \t"));
        DestinationItem* item = DestinationTemplates(context).addDestination(type);
        QVERIFY(item);
        QCOMPARE(m_dialogs->interactions().last().message, QStringLiteral("Create new destination with name:"));
        QCOMPARE(item->name(), QStringLiteral("My destination"));
        QCOMPARE(item->type(), type);
        QCOMPARE(item->recid().size(), 36);
        QCOMPARE(item->value("name_pattern").toString(), pattern);
        QCOMPARE(item->boolForKey("do_compress"), compress);
        QCOMPARE(item->config(), config);
        QVERIFY(item->boolForKey("in_menu"));
        // Order 0: listed above the built-ins until the next reorder.
        QCOMPARE(namesInOrder(context).first(), QStringLiteral("My destination:0"));
    }

    void namesOfSpacesCreateNothing()
    {
        MainAppDelegateBase delegate;
        ManagedObjectContext& context = *delegate.managedObjectContext();
        DestinationTemplates templates(context);
        m_dialogs->enqueueAnswer(QStringLiteral("   "));
        QVERIFY(!templates.addDestination("F"));
        QVERIFY(!templates.addDestination("F")); // cancelled: the scripted default answer
        QVERIFY(!templates.addWorkflow(" \t"));
        QCOMPARE(context.entities(kEntity, Predicate::always())->size(), 0);
    }

    void workflowAndApplicationTemplates()
    {
        MainAppDelegateBase delegate;
        ManagedObjectContext& context = *delegate.managedObjectContext();
        DestinationTemplates templates(context);
        DestinationItem* workflow = templates.addWorkflow(" Save as Text ");
        QCOMPARE(workflow->name(), QStringLiteral("Save as Text"));
        QCOMPARE(workflow->value("config.plugin_name").toString(), QStringLiteral(" Save as Text "));
        QCOMPARE(workflow->type(), QStringLiteral("X"));
        QCOMPARE(workflow->value("name_pattern").toString(), QStringLiteral("%t.pdf"));

        DestinationItem* viewer = templates.addApplication(1, "Viewer", {}, nullptr);
        QCOMPARE(viewer->value("config.appid").toString(), QStringLiteral("com.apple.Preview"));
        QCOMPARE(viewer->type(), QStringLiteral("O"));
        DestinationItem* changed =
            templates.addApplication(0, "ignored", {{"appid", "org.gnome.Evince.desktop"}}, workflow);
        QCOMPARE(changed, workflow);
        QCOMPARE(workflow->value("config.appid").toString(), QStringLiteral("org.gnome.Evince.desktop"));
        QCOMPARE(context.entities(kEntity, Predicate::always())->size(), 2);

        const QString entry = m_root.filePath("Reader.desktop");
        QVERIFY(writeFile(entry, "[Desktop Entry]\nType=Application\nName=Handy Reader\nExec=reader %f\n"));
        DestinationItem* browsed = templates.browseApplication(1, nullptr, entry);
        QCOMPARE(browsed->name(), QStringLiteral("Handy Reader"));
        QCOMPARE(browsed->value("config.appid").toString(), QStringLiteral("Reader.desktop"));
        QVERIFY(!browsed->objectAsDictionary().contains("name_pattern")); // unlike addApplication
    }

    void dropTemplates()
    {
        MainAppDelegateBase delegate;
        ManagedObjectContext& context = *delegate.managedObjectContext();
        DestinationTemplates templates(context);
        QVERIFY(QDir().mkpath(m_root.filePath("drops/Scans 2026")));
        QVERIFY(QDir().mkpath(m_root.filePath("drops/Second")));
        QVERIFY(writeFile(m_root.filePath("drops/paper.pdf"), "%PDF-1.4"));
        QVERIFY(writeFile(m_root.filePath("drops/Viewer.desktop"), "[Desktop Entry]\nType=Application\nName= Viewer Two \nExec=v %f\n"));

        QVERIFY(!templates.readObjectsFromPasteboard({m_root.filePath("drops/paper.pdf")}));
        QVERIFY(!templates.readObjectsFromPasteboard({}));
        DestinationItem* folder = templates.readObjectsFromPasteboard(
            {m_root.filePath("drops/Scans 2026"), m_root.filePath("drops/Second")});
        QCOMPARE(folder->name(), QStringLiteral("Scans 2026"));
        QCOMPARE(folder->value("config.output_dir").toString(),
                 QUrl::fromLocalFile(m_root.filePath("drops/Scans 2026/")).toString(QUrl::FullyEncoded));
        QVERIFY(folder->value("config.output_dir").toString().endsWith("Scans%202026/"));
        QVERIFY(folder->boolForKey("do_compress"));
        QCOMPARE(folder->value("name_pattern").toString(), QStringLiteral("Output-%t.pdf"));

        DestinationItem* app = templates.readObjectsFromPasteboard({m_root.filePath("drops/Viewer.desktop")});
        QCOMPARE(app->name(), QStringLiteral("Viewer Two"));
        QCOMPARE(app->type(), QStringLiteral("O"));
        QCOMPARE(app->value("config.appid").toString(), QStringLiteral("Viewer.desktop"));

        DestinationItem* flow = templates.readObjectsFromPasteboard({m_root.filePath("drops/Save as Image.workflow")});
        QCOMPARE(flow->type(), QStringLiteral("X"));
        QCOMPARE(flow->value("config.plugin_name").toString(), QStringLiteral("Save as Image"));
        QCOMPARE(context.entities(kEntity, Predicate::always())->size(), 3);
    }

    void applicationContextAndPluginFolders()
    {
        MainAppDelegateBase delegate;
        delegate.awakeFromNib();
        const QVariantMap& context = delegate.applicationContext();
        const QString plugins = context.value("APP_SUPPORT_PLUGINS").toString();
        QVERIFY(plugins.endsWith("/Quirepad/PlugIns"));
        QVERIFY(QFileInfo(plugins).isDir());
        QCOMPARE(context.value("APP_SUPPORT_PLUGINS_FILTERS").toString(), plugins + "/Filters");
        QVERIFY(QFileInfo(plugins + "/Filters").isDir());
        QCOMPARE(context.value("SAMPLE_PDF_FILE").toUrl(), QUrl::fromLocalFile("test.pdf"));
        QCOMPARE(context.value("SORT_DESCRIPTORS").toList().first().toMap().value("key").toString(),
                 QStringLiteral("order"));
    }
};

QUIREPAD_REGISTER_TEST(StoreTest);
#include "tst_store.moc"
