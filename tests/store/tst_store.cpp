#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/DialogService.h"
#include "foundation/ScriptedDialogService.h"
#include "store/DestinationTemplates.h"
#include "store/MainAppDelegateBase.h"
#include "store/SettingsFileStore.h"
#include "store/listorder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

namespace {

const QString kEntity = QStringLiteral("Destination");
const QStringList kBuiltins{"Open in Preview:1", "Copy to Desktop:2"};

QString fileUrl(const QString& path)
{
    return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
}

QList<DestinationItem*> all(ManagedObjectContext& context, const QList<SortDescriptor>& sort = {})
{
    return context.entities(kEntity, Predicate::always(), sort).value();
}

DestinationItem* byRecid(ManagedObjectContext& context, const QString& recid)
{
    return context.firstEntity(kEntity, Predicate::equals("recid", recid));
}

// An unsaved record with the given attributes.
DestinationItem* insert(ManagedObjectContext& context, const QVariantMap& values)
{
    DestinationItem* item = context.insertNewEntity(kEntity);
    for (auto it = values.begin(); it != values.end(); ++it)
        item->setValue(it.key(), it.value());
    return item;
}

// The item's values at the key paths, as text joined by '|' ("" when unset).
QString fields(const DestinationItem* item, const QStringList& keyPaths)
{
    if (!item)
        return QStringLiteral("(no record)");
    QStringList values;
    for (const QString& keyPath : keyPaths)
        values << item->value(keyPath).toString();
    return values.join('|');
}

// "name:order" of every record, by ascending order.
QStringList namesInOrder(ManagedObjectContext* context)
{
    if (!context)
        return {QStringLiteral("(no store)")};
    QStringList names;
    for (DestinationItem* item : all(*context, {{"order", true}}))
        names << item->name() + QLatin1Char(':') + QString::number(item->integerForKey("order"));
    return names;
}

template <class Item>
QString joined(const QList<Item*>& items, QString (Item::*text)() const = &Item::name)
{
    QStringList texts;
    for (Item* item : items)
        texts << (item->*text)();
    return texts.join(' ');
}

// Runs the statements on an SQLite file: the first column of the last one's
// first row, "" when it has none, "failed" when a statement fails.
QString sql(const QString& path, const QStringList& statements)
{
    QString result = QStringLiteral("failed");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "probe");
        db.setDatabaseName(path);
        const bool opened = db.open();
        QSqlQuery query(db);
        if (opened && std::all_of(statements.begin(), statements.end(), [&](const QString& s) { return query.exec(s); }))
            result = query.next() ? query.value(0).toString() : QString();
    }
    QSqlDatabase::removeDatabase("probe");
    return result;
}

// A small tree item for the list numbering.
struct Node {
    QString label;
    qint64 order = 0;
    QList<Node*> children = {};
    QString name() const { return label; }
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
    void init()
    {
        // Every test starts from an account that has never run the program.
        qputenv("HOME", m_root.filePath("home").toUtf8());
        qputenv("XDG_DATA_HOME", m_root.filePath(QStringLiteral("data%1").arg(++m_run)).toUtf8());
        DialogService::setCurrent(std::unique_ptr<DialogService>(m_dialogs = new ScriptedDialogService));
    }

    void freshStoreHoldsTheTwoBuiltinsInOrder()
    {
        {
            MainAppDelegateBase delegate;
            delegate.registerDefaults();
            QCOMPARE(namesInOrder(delegate.managedObjectContext()), kBuiltins);
            QVERIFY(delegate.saveAction());
        }
        MainAppDelegateBase reopened;
        ManagedObjectContext& context = *reopened.managedObjectContext();
        QCOMPARE(namesInOrder(&context), kBuiltins);
        DestinationItem* desktop = context.firstEntity(kEntity, *Predicate::fromFormat("recid == 'copy_to_desktop'"));
        QCOMPARE(fields(desktop, {"type", "name_pattern", "is_system", "config.output_dir"}),
                 "F|%t.pdf|true|" + fileUrl(m_root.filePath("home/Desktop/")));
        QCOMPARE(fields(byRecid(context, "open_in_preview"), {"config.appid", "is_system"}), "com.apple.Preview|");
        QCOMPARE(context.entities(kEntity, *Predicate::fromFormat("in_menu == TRUE"))->size(), 2);
        QVERIFY(m_dialogs->interactions().isEmpty());
        QCOMPARE(sql(storePath(), {"PRAGMA user_version"}), QStringLiteral("1"));
    }

    void deletingCopyToDesktopBringsBothBack_data()
    {
        QTest::addColumn<QString>("deleted");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("Copy to Desktop deleted") << "copy_to_desktop" << QStringList{"Open in Preview:1"} + kBuiltins;
        QTest::newRow("Open in Preview deleted") << "open_in_preview" << QStringList{"Copy to Desktop:2"};
    }

    void deletingCopyToDesktopBringsBothBack()
    {
        QFETCH(QString, deleted);
        {
            MainAppDelegateBase delegate;
            delegate.registerDefaults();
            delegate.managedObjectContext()->deleteEntities(kEntity, Predicate::equals("recid", deleted));
            QVERIFY(delegate.saveAction());
        }
        MainAppDelegateBase next;
        next.registerDefaults();
        QTEST(namesInOrder(next.managedObjectContext()), "expected");
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
        QVERIFY(asked[0].informative.contains("Expected a folder to store application data, found a file (" + storeDir()
                                              + ")."));
        QCOMPARE(readFile(storeDir()), QByteArray("not a folder")); // left alone
        QVERIFY(delegate.saveAction()); // nothing to save, no crash
    }

    void unreadableStoreIsMovedAside_data()
    {
        QTest::addColumn<QStringList>("statements"); // none: a file of garbage
        QTest::newRow("garbage") << QStringList{};
        QTest::newRow("another program's database") << QStringList{"CREATE TABLE other (x)"};
        QTest::newRow("from a newer version")
            << QStringList{"PRAGMA user_version = 99", "CREATE TABLE destination (id INTEGER PRIMARY KEY)"};
    }

    void unreadableStoreIsMovedAside()
    {
        QFETCH(QStringList, statements);
        QVERIFY(QDir().mkpath(storeDir()));
        if (statements.isEmpty())
            QVERIFY(writeFile(storePath(), QByteArray(4096, 'g')));
        else
            QCOMPARE(sql(storePath(), statements), QString());
        const QByteArray original = readFile(storePath());

        MainAppDelegateBase delegate;
        QSignalSpy moved(&delegate, &MainAppDelegateBase::storeMovedAside);
        delegate.registerDefaults();
        QCOMPARE(namesInOrder(delegate.managedObjectContext()), kBuiltins);
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
        DestinationItem* a = insert(context, {{"name", "b-second"}, {"recid", "A"}, {"in_menu", false}});
        DestinationItem* b = insert(context, {{"name", "a-first"}, {"recid", "B"}, {"in_menu", true}});
        QVERIFY(!context.insertNewEntity("Unknown") && !context.entities("Unknown", Predicate::always()));
        QCOMPARE(all(context).size(), 2);
        QCOMPARE((QList<DestinationItem*>{context.firstEntity(kEntity, Predicate::always(), {{"name", true}}),
                                          context.firstEntity(kEntity, Predicate::always(), {{"name", false}}),
                                          context.firstEntity(kEntity, *Predicate::fromFormat("in_menu == TRUE")),
                                          context.firstEntity(kEntity, *Predicate::fromFormat("in_menu == NO"))}),
                 (QList<DestinationItem*>{b, a, b, a}));
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
        QCOMPARE(joined(all(context), &DestinationItem::recid), QStringLiteral("B C"));
        QVERIFY(context.save(&error));
        delegate.setChangeCount(2); // forces a save with nothing changed
        QVERIFY(delegate.saveAction());
        QCOMPARE(delegate.changeCount(), 0);
        MainAppDelegateBase reopened;
        QCOMPARE(joined(__get_all_entities(kEntity, *reopened.managedObjectContext()), &DestinationItem::recid), "B C");
    }

    void valuesKeepTheirKindsAndBytes()
    {
        const QByteArray opaque("\x00\xff\x01 not text\n", 13);
        QImage image(4, 4, QImage::Format_ARGB32);
        image.fill(Qt::red);
        {
            MainAppDelegateBase delegate;
            DestinationItem* item = insert(*delegate.managedObjectContext(),
                                           {{"recid", "kinds"}, {"rule", opaque}, {"keywords", QStringLiteral("plain ü")},
                                            {"image", image}, {"do_overwrite", "yes"},
                                            {"config", QVariantMap{{"output_dir", "file:///tmp/x/"}, {"n", 3}}}});
            item->setInteger(-7, "order");
            item->archiveObject(QVariantMap{{"k", QStringList{"a", "b"}}}, "category");
            QVERIFY(!item->setValue("no_such_attribute", 1));
            QVERIFY(delegate.saveAction());
        }
        MainAppDelegateBase delegate;
        DestinationItem* item = byRecid(*delegate.managedObjectContext(), "kinds");
        QCOMPARE(fields(item, {"order", "do_overwrite", "config.n"}), QStringLiteral("-7|true|3"));
        QVERIFY(!item->boolForKey("do_compress")); // absent reads NO
        QCOMPARE(item->value("rule").toByteArray(), opaque);
        QCOMPARE(item->value("keywords").toByteArray(), QStringLiteral("plain ü").toUtf8());
        QCOMPARE(item->unarchiveObjectForKey("category").toMap().value("k").toStringList(), (QStringList{"a", "b"}));
        QImage back;
        QVERIFY(back.loadFromData(item->value("image").toByteArray(), "PNG"));
        QCOMPARE(back.pixelColor(1, 1), QColor(Qt::red));
        QVERIFY(!item->icon().isNull());
        QVERIFY(item->objectAsDictionary().contains("rule") && !item->objectAsDictionary().contains("name"));
    }

    void ereaderIconDraws()
    {
        // The e-reader icon is an SVG resource: it needs Qt's SVG plugin.
        MainAppDelegateBase delegate;
        DestinationItem* item = DestinationTemplates(*delegate.managedObjectContext()).createDestination("K", "Reader");
        const QImage picture = item->icon().pixmap(64).toImage();
        int drawn = 0;
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x)
                drawn += qAlpha(picture.pixel(x, y)) > 0;
        QVERIFY2(drawn > 200, "the e-reader icon draws nothing (is libqt6svg6 installed?)");
    }

    void exportAndImportCarryExactlyEightAttributes()
    {
        const QString file = m_root.filePath(QStringLiteral("export%1.quirepad-settings").arg(m_run));
        const QByteArray carried("\x01\x02\xfe", 3);
        QString error;
        {
            MainAppDelegateBase source;
            source.registerDefaults();
            ManagedObjectContext& context = *source.managedObjectContext();
            DestinationItem* folder = DestinationTemplates(context).createDestination("F", "Exported folder");
            folder->setValue("recid", "exported-folder");
            folder->setValue("handler_list", carried);
            folder->setValue("tranform", "Monochrome");
            byRecid(context, "copy_to_desktop")->setValue("name", "Desk (exported)");
            byRecid(context, "copy_to_desktop")->setInteger(9, "order");
            // One record alone, then everything merged into the same file by recid.
            QVERIFY(source.exportItemTo(*byRecid(context, "open_in_preview"), file, &error));
            const auto one = SettingsFileStore::parse(readFile(file), &error);
            QVERIFY(one && one->size() == 1);
            QCOMPARE(one->first().values.value("recid").toString(), QStringLiteral("open_in_preview"));
            QVERIFY(!one->first().values.contains("config"));
            QVERIFY2(source.exportTo(file, &error), qPrintable(error));
            QCOMPARE(SettingsFileStore::parse(readFile(file), &error)->size(), 3);
        }
        // Another account imports the file.
        qputenv("XDG_DATA_HOME", m_root.filePath(QStringLiteral("data%1-target").arg(m_run)).toUtf8());
        MainAppDelegateBase target;
        target.registerDefaults();
        ManagedObjectContext& context = *target.managedObjectContext();
        DestinationItem* desktop = byRecid(context, "copy_to_desktop");
        const QVariantMap desktopConfig = desktop->config();
        QVERIFY2(target.importFrom(file, &error), qPrintable(error));
        // Known recid: name, order and type replaced; its own config and in_menu stay.
        QCOMPARE(fields(desktop, {"name", "order", "in_menu"}), QStringLiteral("Desk (exported)|9|true"));
        QCOMPARE(desktop->config(), desktopConfig);
        // New recid: arrives without config, in_menu and the rest.
        DestinationItem* imported = byRecid(context, "exported-folder");
        QCOMPARE(fields(imported, {"name", "type"}), QStringLiteral("Exported folder|F"));
        QCOMPARE(imported->value("handler_list").toByteArray(), carried);
        QCOMPARE(imported->objectAsDictionary().keys().join(' '), QStringLiteral("handler_list name order recid type"));
        QCOMPARE(context.entities(kEntity, *Predicate::fromFormat("in_menu == TRUE"))->size(), 2);
        QCOMPARE(all(context).size(), 3);
    }

    void foreignOrCorruptFilesAreRefused_data()
    {
        QTest::addColumn<QByteArray>("contents");
        const QByteArray head("<quirepad-settings version=\"1\"><destination><attribute name=");
        const QByteArray tail("</attribute></destination></quirepad-settings>");
        QTest::newRow("not XML") << QByteArray("PK\x03\x04 zip bytes", 14);
        QTest::newRow("another XML document") << QByteArray("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>");
        QTest::newRow("newer format") << QByteArray("<quirepad-settings version=\"7\"></quirepad-settings>");
        QTest::newRow("truncated") << head + "\"recid\" kind=\"string\">x";
        QTest::newRow("wrong kind") << head + "\"order\" kind=\"string\">x" + tail;
        QTest::newRow("bad number") << head + "\"order\" kind=\"integer\">two" + tail;
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
        QCOMPARE(all(*delegate.managedObjectContext()).size(), 2);
        error.clear();
        QVERIFY(!delegate.exportTo(file, &error));
        QVERIFY(!error.isEmpty());
        QCOMPARE(readFile(file), contents); // never overwritten
        QVERIFY(!delegate.importFrom(m_root.filePath("missing.quirepad-settings"), &error));
    }

    void insertionRules_data()
    {
        QTest::addColumn<int>("listSize");
        QTest::addColumn<int>("anchor"); // -1 nil, 5 not in the list
        QTest::addColumn<bool>("after");
        QTest::addColumn<QString>("expected");
        QTest::newRow("after anchor") << 3 << 1 << true << "0 1 x y 2";
        QTest::newRow("after last") << 3 << 2 << true << "0 1 2 x y";
        QTest::newRow("after nil goes first") << 3 << -1 << true << "x y 0 1 2";
        QTest::newRow("after missing goes to index 1") << 3 << 5 << true << "0 x y 1 2";
        QTest::newRow("after into empty appends") << 0 << -1 << true << "x y";
        QTest::newRow("before anchor") << 3 << 1 << false << "0 x y 1 2";
        QTest::newRow("before nil goes first") << 3 << -1 << false << "x y 0 1 2";
        QTest::newRow("before missing goes first") << 3 << 5 << false << "x y 0 1 2";
        QTest::newRow("before into empty appends") << 0 << 5 << false << "x y";
    }

    void insertionRules()
    {
        QFETCH(int, listSize);
        QFETCH(int, anchor);
        QFETCH(bool, after);
        std::vector<Node> nodes{{"0"}, {"1"}, {"2"}, {"x"}, {"y"}, {"outsider"}};
        QList<Node*> list{&nodes[0], &nodes[1], &nodes[2]};
        list.resize(listSize);
        Node* anchorNode = anchor < 0 ? nullptr : &nodes[anchor];
        const auto insertion = after ? listInsertObjectAfter<Node> : listInsertObjectBefore<Node>;
        insertion(list, {&nodes[3], &nodes[4]}, anchorNode);
        QTEST(joined(list), "expected");
        insertion(list, {}, anchorNode);
        QCOMPARE(list.size(), listSize + 2);
    }

    void recursiveNumbering()
    {
        Node leaf1{"l1", 7}, leaf2{"l2", 8}, only{"only", 5};
        Node parent{"p", 0, {&leaf2, &leaf1}}, single{"s", 0, {&only}}, plain{"plain", 0};
        listStoreOrderRecursive(QList<Node*>{&plain, &parent, &single}, "order", "children");
        // A single child keeps its number.
        QCOMPARE((QList<qint64>{plain.order, parent.order, single.order, leaf2.order, leaf1.order, only.order}),
                 (QList<qint64>{1, 2, 3, 1, 2, 5}));
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
        MainAppDelegateBase delegate;
        ManagedObjectContext& context = *delegate.managedObjectContext();
        QMap<QString, DestinationItem*> byName;
        const QList<int> initialOrders{0, 3, 3, 10}; // ties and gaps, as after new records
        for (const char* name : {"A", "B", "C", "D"})
            byName.insert(name, insert(context, {{"name", name}, {"order", initialOrders[byName.size()]}}));
        QList<DestinationItem*> movedItems;
        for (const QString& name : moved.split(' '))
            movedItems << byName[name];
        const SortDescriptor sort{"order", ascending};
        const QList<DestinationItem*> result =
            listDropReorder(listPrepareReorder(all(context), {}, sort), movedItems, byName.value(inFront), sort);
        QTEST(joined(result), "displayed");
        // The stored numbers follow the displayed list: 1..n in ascending sort order.
        QStringList orders;
        for (DestinationItem* item : result)
            orders << QString::number(item->integerForKey("order"));
        QCOMPARE(orders.join(' '), QString(ascending ? "1 2 3 4" : "4 3 2 1"));
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

    void typeTemplates_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<bool>("compress");
        QTest::addColumn<QVariantMap>("config");
        const QString desktop = fileUrl(m_root.filePath("home/Desktop/"));
        const QString dropbox = fileUrl(m_root.filePath("home/Dropbox/Public/"));
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
        MainAppDelegateBase delegate;
        delegate.registerDefaults();
        m_dialogs->enqueueAnswer(QStringLiteral("  My destination \t"));
        DestinationItem* item = DestinationTemplates(*delegate.managedObjectContext()).addDestination(type);
        QCOMPARE(fields(item, {"name", "type", "in_menu"}), "My destination|" + type + "|true");
        QCOMPARE(m_dialogs->interactions().last().message, QStringLiteral("Create new destination with name:"));
        QCOMPARE(item->recid().size(), 36);
        QTEST(item->value("name_pattern").toString(), "pattern");
        QTEST(item->boolForKey("do_compress"), "compress");
        QTEST(item->config(), "config");
        // Order 0: listed above the built-ins until the next reorder.
        QCOMPARE(namesInOrder(delegate.managedObjectContext()).first(), QStringLiteral("My destination:0"));
    }

    void workflowApplicationAndDropTemplates()
    {
        MainAppDelegateBase delegate;
        DestinationTemplates templates(*delegate.managedObjectContext());
        // Names of spaces, or no answer, create nothing.
        m_dialogs->enqueueAnswer(QStringLiteral("   "));
        QVERIFY(!templates.addDestination("F"));
        QVERIFY(!templates.addDestination("F")); // the scripted default answer cancels
        QVERIFY(!templates.addWorkflow(" \t"));
        QCOMPARE(all(*delegate.managedObjectContext()).size(), 0);

        DestinationItem* workflow = templates.addWorkflow(" Save as Text ");
        QCOMPARE(fields(workflow, {"name", "config.plugin_name", "type", "name_pattern"}),
                 QStringLiteral("Save as Text| Save as Text |X|%t.pdf"));
        QCOMPARE(fields(templates.addApplication(1, "Viewer", {}, nullptr), {"config.appid", "type"}),
                 QStringLiteral("com.apple.Preview|O"));
        QCOMPARE(templates.addApplication(0, "ignored", {{"appid", "org.gnome.Evince.desktop"}}, workflow), workflow);
        QCOMPARE(workflow->value("config.appid").toString(), QStringLiteral("org.gnome.Evince.desktop"));
        QCOMPARE(all(*delegate.managedObjectContext()).size(), 2);

        const QString drops = m_root.filePath("drops/");
        QVERIFY(QDir().mkpath(drops + "Scans 2026") && QDir().mkpath(drops + "Second"));
        QVERIFY(writeFile(drops + "paper.pdf", "%PDF-1.4"));
        QVERIFY(writeFile(drops + "Reader.desktop", "[Desktop Entry]\nType=Application\nName=Handy Reader\nExec=r %f\n"));
        QVERIFY(writeFile(drops + "Viewer.desktop", "[Desktop Entry]\nType=Application\nName= Viewer Two \nExec=v %f\n"));
        DestinationItem* browsed = templates.browseApplication(1, nullptr, drops + "Reader.desktop");
        QCOMPARE(fields(browsed, {"name", "config.appid", "name_pattern"}), "Handy Reader|Reader.desktop|"); // no pattern

        QVERIFY(!templates.readObjectsFromPasteboard({drops + "paper.pdf"}));
        QVERIFY(!templates.readObjectsFromPasteboard({}));
        QCOMPARE(fields(templates.readObjectsFromPasteboard({drops + "Scans 2026", drops + "Second"}),
                        {"name", "config.output_dir", "do_compress", "name_pattern"}),
                 "Scans 2026|" + fileUrl(drops + "Scans 2026/") + "|true|Output-%t.pdf");
        QCOMPARE(fields(templates.readObjectsFromPasteboard({drops + "Viewer.desktop"}), {"name", "type", "config.appid"}),
                 QStringLiteral("Viewer Two|O|Viewer.desktop"));
        QCOMPARE(fields(templates.readObjectsFromPasteboard({drops + "Save as Image.workflow"}),
                        {"type", "config.plugin_name"}),
                 QStringLiteral("X|Save as Image"));
        QCOMPARE(all(*delegate.managedObjectContext()).size(), 6);
    }

    void applicationContextAndPluginFolders()
    {
        MainAppDelegateBase delegate;
        delegate.awakeFromNib();
        const QVariantMap& context = delegate.applicationContext();
        const QString plugins = context.value("APP_SUPPORT_PLUGINS").toString();
        QVERIFY(plugins.endsWith("/Quirepad/PlugIns"));
        QCOMPARE(context.value("APP_SUPPORT_PLUGINS_FILTERS").toString(), plugins + "/Filters");
        QVERIFY(QFileInfo(plugins + "/Filters").isDir()); // and so its parent
        QCOMPARE(context.value("SAMPLE_PDF_FILE").toUrl(), QUrl::fromLocalFile("test.pdf"));
        QCOMPARE(context.value("SORT_DESCRIPTORS").toList().first().toMap().value("key"), QVariant("order"));
    }
};

QUIREPAD_REGISTER_TEST(StoreTest);
#include "tst_store.moc"
