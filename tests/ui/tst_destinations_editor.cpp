#include "TestFiles.h"
#include "TestRegistry.h"
#include "UiFixture.h"

#include "foundation/session.h"
#include "pipeline/CopyFileProcessor.h"
#include "pipeline/ProcessorFactory.h"
#include "ui/DestinationForm.h"
#include "ui/DestinationListModel.h"
#include "ui/DestinationsPage.h"
#include "ui/PreferencesWindow.h"

#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QSysInfo>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

// The destinations page of the preferences, driven as a user would: the Add
// menu, typing into the form, the file choosers (scripted), and drops on the
// list (the model's drop, which a real drag ends in: a drag cannot be
// simulated on the offscreen platform).
class DestinationsEditorTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    std::unique_ptr<PreferencesWindow> m_window;

    DestinationsPage* page() const { return m_window->destinationsPage(); }
    DestinationForm* form() const { return page()->form(); }
    QStringList names() const
    {
        QStringList list;
        for (int row = 0; row < m_window->model()->rowCount(); ++row)
            list << m_window->model()->itemAt(row)->name();
        return list;
    }
    DestinationItem* add(const QString& typeLetter)
    {
        for (QAction* action : page()->addButton()->menu()->actions())
            if (action->text() == DestinationListModel::typeTitle(typeLetter))
                action->trigger();
        return page()->selectedItem();
    }
    void retype(DestinationForm::Field field, const QString& text)
    {
        QLineEdit* edit = form()->lineEdit(field);
        edit->selectAll();
        QTest::keyClick(edit, Qt::Key_Backspace);
        QTest::keyClicks(edit, text);
    }

private slots:
    void initTestCase() { m_fx.setUpEnvironment(); }

    void init()
    {
        m_fx.start();
        QDir(m_fx.root.filePath("home")).removeRecursively();
        QVERIFY(QDir().mkpath(m_fx.root.filePath("home/Desktop")));
        m_window = std::make_unique<PreferencesWindow>(*m_fx.delegate);
        m_window->present();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }

    void cleanup()
    {
        m_window.reset();
        m_fx.stop();
    }

    void addEachType_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<bool>("hasFolder");
        for (const QString& letter : DestinationListModel::typeLetters())
            QTest::newRow(qPrintable(letter)) << letter << (letter == "F" || letter == "D");
    }
    void addEachType()
    {
        QFETCH(QString, type);
        QFETCH(bool, hasFolder);
        DestinationItem* item = add(type);
        QVERIFY(item);
        QCOMPARE(item->type(), type);
        QCOMPARE(item->name(), DestinationListModel::typeTitle(type));
        QCOMPARE(form()->item(), item);
        QCOMPARE(form()->lineEdit(DestinationForm::Folder)->isVisibleTo(m_window.get()), hasFolder);
        QCOMPARE(form()->comboBox(DestinationForm::Application)->isVisibleTo(m_window.get()), type == "O");
        QCOMPARE(form()->comboBox(DestinationForm::Workflow)->isVisibleTo(m_window.get()), type == "X");
        QVERIFY(!m_fx.context().hasChanges()); // saved
        // A second one of the same type gets a name of its own.
        QCOMPARE(add(type)->name(), DestinationListModel::typeTitle(type) + " 2");
    }

    void invalidInputIsShownAndNotSaved_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("field");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("message");
        QTest::newRow("empty name") << "F" << int(DestinationForm::Name) << "name"
                                    << "  "
                                    << "needs a name";
        QTest::newRow("taken name") << "F" << int(DestinationForm::Name) << "name"
                                    << "copy to desktop"
                                    << "Another destination is called “Copy to Desktop”";
        QTest::newRow("relative folder") << "F" << int(DestinationForm::Folder) << "config.output_dir"
                                         << "Scans"
                                         << "full path";
        QTest::newRow("folder under a file") << "D" << int(DestinationForm::Folder) << "config.output_dir"
                                             << "~/notes.txt/Scans"
                                             << "cannot be created";
        QTest::newRow("file for a folder") << "F" << int(DestinationForm::Folder) << "config.output_dir"
                                           << "~/notes.txt"
                                           << "is a file, not a folder";
        QTest::newRow("unknown code") << "F" << int(DestinationForm::Pattern) << "name_pattern"
                                      << "%t-%d.pdf"
                                      << "%d is not a code";
        QTest::newRow("missing filter") << "F" << int(DestinationForm::Filter) << "tranform"
                                        << "No Such Filter"
                                        << "No filter called “No Such Filter”";
        QTest::newRow("missing workflow") << "X" << int(DestinationForm::Workflow) << "config.plugin_name"
                                          << "No Such Workflow"
                                          << "No workflow called “No Such Workflow”";
        QTest::newRow("bad address") << "K" << int(DestinationForm::Email) << "config.reader_email"
                                     << "-x@y"
                                     << "not an e-mail address";
    }
    void invalidInputIsShownAndNotSaved()
    {
        QFETCH(QString, type);
        QFETCH(int, field);
        QFETCH(QString, key);
        QFETCH(QString, typed);
        QFETCH(QString, message);
        QVERIFY(writeFile(m_fx.root.filePath("home/notes.txt"), "x"));
        DestinationItem* item = add(type);
        if (type == "K") {
            item->setValue("config.transfer_type", 1);
            form()->reload();
        }
        const auto f = DestinationForm::Field(field);
        retype(f, typed);
        QVERIFY2(form()->message(f).contains(message), qPrintable(form()->message(f)));
        // Valid beginnings may have been saved on the way; the end is not.
        QVERIFY(item->value(key).toString() != typed.trimmed());
        QVERIFY(!item->value(key).toString().contains(typed.trimmed()) || typed.trimmed().isEmpty());
        QVERIFY(form()->hasUnsavedInput());

        // Leaving asks first; keeping the input keeps the selection.
        m_fx.dialogs->enqueueAnswer(false);
        page()->list()->setCurrentIndex(m_window->model()->index(m_window->model()->rowOf(item) == 0 ? 1 : 0));
        QCOMPARE(page()->selectedItem(), item);
        QCOMPARE(form()->lineEdit(f)->text(), typed);
    }

    void validInputIsSaved()
    {
        DestinationItem* item = add("F");
        retype(DestinationForm::Name, "Scans");
        retype(DestinationForm::Folder, "~/Scans/2024");
        retype(DestinationForm::Pattern, "%u %t.pdf");
        QVERIFY(!form()->hasUnsavedInput());
        QVERIFY(!m_fx.context().hasChanges());
        QCOMPARE(item->name(), QStringLiteral("Scans"));
        QCOMPARE(item->value("config.output_dir").toString(),
            QUrl::fromLocalFile(m_fx.root.filePath("home/Scans/2024/")).toString(QUrl::FullyEncoded));
        QCOMPARE(item->value("name_pattern").toString(), QStringLiteral("%u %t.pdf"));
        // Shown again as the user wrote it, not as a URL.
        page()->select(m_fx.context().firstEntity("Destination", Predicate::equals("recid", "copy_to_desktop")));
        QCOMPARE(form()->lineEdit(DestinationForm::Folder)->text(), QStringLiteral("~/Desktop"));
        page()->select(item);
        QCOMPARE(form()->lineEdit(DestinationForm::Folder)->text(), QStringLiteral("~/Scans/2024"));
    }

    // A reference that broke after it was saved is flagged, not dropped.
    void missingApplicationIsFlagged()
    {
        DestinationItem* item = add("O");
        QVERIFY(form()->message(DestinationForm::Application).isEmpty());
        item->setValue("config.appid", "org.example.Gone.desktop");
        QVERIFY(form()->message(DestinationForm::Application).contains("is not installed"));
        QCOMPARE(form()->comboBox(DestinationForm::Application)->currentText(),
            QStringLiteral("org.example.Gone.desktop (not installed)"));
    }

    // The preview is the name a delivery of the sample job really gets.
    void previewIsTheDeliveredName()
    {
        DestinationItem* item = add("F");
        retype(DestinationForm::Folder, "~/Out");
        retype(DestinationForm::Pattern, "%u on %h - %t");
        const QString preview = form()->preview()->text();
        const QString spooled = m_fx.root.filePath(user_name() + "-D3F2UG-Quarterly plan.pdf");
        QVERIFY(writeFile(spooled, "%PDF-1.4\n%%EOF\n"));
        std::unique_ptr<CopyFileProcessor> processor = copyProcessorForName(m_fx.context(), item->name());
        processor->setContext(
            { { "TITLE", "Quarterly plan" }, { "USER", user_name() }, { "HOST", QSysInfo::machineHostName() } });
        QVERIFY(processor->processFile(spooled));
        const QString delivered = QFileInfo(processor->resultFile).fileName();
        QCOMPARE(delivered, user_name() + " on " + QSysInfo::machineHostName() + " - Quarterly plan.pdf");
        QVERIFY2(preview.endsWith(delivered), qPrintable(preview));
    }

    void reorderByDrop()
    {
        add("F");
        add("X");
        const QStringList before = names();
        QListView* list = page()->list();
        const QModelIndex last = m_window->model()->index(m_window->model()->rowCount() - 1);
        list->setCurrentIndex(last);
        std::unique_ptr<QMimeData> drag(m_window->model()->mimeData({ last }));
        // Dropped in front of the second row.
        QVERIFY(list->model()->canDropMimeData(drag.get(), Qt::MoveAction, 1, 0, QModelIndex()));
        m_window->model()->dropMimeData(drag.get(), Qt::MoveAction, 1, 0, QModelIndex());
        QStringList expected = before;
        expected.move(before.size() - 1, 1);
        QCOMPARE(names(), expected);
        QCOMPARE(page()->selectedItem()->name(), before.last()); // the selection moved with it
        QVERIFY(!m_fx.context().hasChanges());
        QList<qint64> orders;
        for (DestinationItem* item : m_fx.records())
            orders << item->integerForKey("order");
        QCOMPARE(orders, (QList<qint64> { 1, 2, 3, 4 }));
        QCOMPARE(m_fx.records().at(1)->name(), before.last());
    }

    void dropFolderOrApplication()
    {
        const QString folder = m_fx.root.filePath("home/Invoices");
        QVERIFY(QDir().mkpath(folder));
        QMimeData drop;
        drop.setUrls({ QUrl::fromLocalFile(folder) });
        QVERIFY(m_window->model()->dropMimeData(&drop, Qt::CopyAction, -1, 0, QModelIndex()));
        DestinationItem* item = page()->selectedItem();
        QCOMPARE(item->name(), QStringLiteral("Invoices"));
        QCOMPARE(item->type(), QStringLiteral("F"));
        QCOMPARE(form()->lineEdit(DestinationForm::Folder)->text(), QStringLiteral("~/Invoices"));

        const QString entry = m_fx.root.filePath("home/viewer.desktop");
        QVERIFY(writeFile(entry, "[Desktop Entry]\nType=Application\nName=Invoices\nExec=true %f\n"));
        drop.setUrls({ QUrl::fromLocalFile(entry) });
        QVERIFY(m_window->model()->dropMimeData(&drop, Qt::CopyAction, -1, 0, QModelIndex()));
        QCOMPARE(page()->selectedItem()->type(), QStringLiteral("O"));
        QCOMPARE(page()->selectedItem()->name(), QStringLiteral("Invoices 2"));
    }

    void duplicateComesRightAfter()
    {
        DestinationItem* original
            = m_fx.context().firstEntity("Destination", Predicate::equals("recid", "open_in_preview"));
        page()->select(original);
        page()->duplicateButton()->click();
        DestinationItem* copy = page()->selectedItem();
        QCOMPARE(copy->name(), QStringLiteral("Open in Preview copy"));
        QVERIFY(copy->recid() != original->recid());
        QCOMPARE(copy->config(), original->config());
        QCOMPARE(names().indexOf("Open in Preview copy"), names().indexOf("Open in Preview") + 1);
        QVERIFY(!m_fx.context().hasChanges());
    }

    // What a command forwarded to the running instance changes in the store
    // shows in the open window.
    void storeChangesShow()
    {
        DestinationItem* item = DestinationTemplates(m_fx.context()).createDestination("F", "From the shell");
        QVERIFY(names().contains("From the shell"));
        page()->select(item);
        item->setValue("config.output_dir", QUrl::fromLocalFile(m_fx.root.filePath("home/Elsewhere/")).toString());
        QCOMPARE(form()->lineEdit(DestinationForm::Folder)->text(), QStringLiteral("~/Elsewhere"));
        m_fx.context().deleteObject(item);
        QVERIFY(!names().contains("From the shell"));
        QVERIFY(page()->selectedItem());
        QCOMPARE(form()->item(), page()->selectedItem());
    }

    void exportAndImportThroughTheChoosers()
    {
        DestinationItem* scans = add("F");
        retype(DestinationForm::Name, "Scans");
        const QString all = m_fx.root.filePath("all");
        m_fx.dialogs->enqueueAnswer(all); // the extension is added
        page()->exportButton()->click();
        QVERIFY(QFileInfo::exists(all + ".quirepad-settings"));
        page()->select(scans);
        const QString one = m_fx.root.filePath("one.quirepad-settings");
        m_fx.dialogs->enqueueAnswer(one);
        page()->saveOneButton()->click();
        QString error;
        auto single = m_fx.delegate->makeAuxManagedObjectContext(one, &error);
        QVERIFY2(single, qPrintable(error));
        const auto inFile = single->entities("Destination", Predicate::always());
        QVERIFY(inFile && inFile->size() == 1 && inFile->first()->name() == "Scans");

        m_fx.dialogs->enqueueAnswer(true);
        page()->removeButton()->click();
        QVERIFY(!names().contains("Scans"));
        m_fx.dialogs->enqueueAnswer(QStringList { all + ".quirepad-settings" });
        page()->importButton()->click();
        QVERIFY(names().contains("Scans"));
        QVERIFY(!m_fx.context().hasChanges());
    }
};

QUIREPAD_REGISTER_TEST(DestinationsEditorTest);
#include "tst_destinations_editor.moc"
