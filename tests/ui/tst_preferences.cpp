#include "TestFiles.h"
#include "TestRegistry.h"
#include "PictureFolder.h"
#include "UiFixture.h"

#include "foundation/DesktopEntry.h"
#include "foundation/SettingsSchema.h"
#include "ui/AutostartEntry.h"
#include "ui/DestinationForm.h"
#include "ui/DestinationListModel.h"
#include "ui/DestinationsPage.h"
#include "ui/GeneralSettingsPage.h"
#include "ui/PreferencesWindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QSet>
#include <QSpinBox>
#include <QTest>

#include <unistd.h>

using namespace quirepad;
using namespace quirepad::test;

// The general page of the preferences: settings saved as they are
// changed, starting at login, the print driver, and a settings file
// changed by another process showing up in the open window.
class PreferencesTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    std::unique_ptr<PreferencesWindow> m_window;

    GeneralSettingsPage* general() const { return m_window->generalPage(); }

private slots:
    void initTestCase() { m_fx.setUpEnvironment(); }

    void init()
    {
        m_fx.start();
        m_window = std::make_unique<PreferencesWindow>(*m_fx.delegate);
        m_window->present();
        m_window->showPage(PreferencesWindow::General);
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }

    void cleanup()
    {
        m_window.reset();
        m_fx.stop();
    }

    void settingsAreSaved()
    {
        UserDefaults& defaults = UserDefaults::standard();
        QComboBox* destination = general()->destinationChoice();
        QCOMPARE(destination->currentText(), QStringLiteral("Ask every time"));
        destination->setCurrentIndex(destination->findText("Copy to Desktop"));
        emit destination->activated(destination->currentIndex());
        QCOMPARE(defaults.stringValue(SettingKey::DestinationName), QStringLiteral("Copy to Desktop"));

        QVERIFY(general()->notificationsSwitch()->isChecked());
        general()->notificationsSwitch()->click();
        QVERIFY(defaults.boolValue(SettingKey::DisableNotifications));

        QSpinBox* maxcount = general()->maxcountBox();
        maxcount->selectAll();
        QTest::keyClicks(maxcount, "7");
        QCOMPARE(defaults.integerValue(SettingKey::Maxcount), 7);
        QTest::keyClicks(maxcount, "0"); // 70 is out of range
        QCOMPARE(defaults.integerValue(SettingKey::Maxcount), 7);

        // A destination renamed in the other page is offered under its new name.
        m_window->showPage(PreferencesWindow::Destinations);
        DestinationsPage* page = m_window->destinationsPage();
        page->select(m_fx.context().firstEntity("Destination", Predicate::equals("recid", "copy_to_desktop")));
        QLineEdit* name = page->form()->lineEdit(DestinationForm::Name);
        name->selectAll();
        QTest::keyClicks(name, "Desk");
        QVERIFY(destination->findText("Desk") >= 0);
    }

    void startAtLogin()
    {
        const QString entry = m_fx.root.filePath("config/autostart/com.halvern.Quirepad.desktop");
        QCOMPARE(AutostartEntry::path(), entry);
        QFile::remove(entry);
        general()->readSettings();
        QCheckBox* autostart = general()->autostartSwitch();
        QVERIFY(!autostart->isChecked());
        autostart->click();
        QVERIFY(autostart->isChecked());
        const std::optional<DesktopEntry> written = DesktopEntry::fromFile(entry);
        QVERIFY(written && written->isLaunchable());
        QCOMPARE(written->commandFor({}), QStringList { QCoreApplication::applicationFilePath() });
        autostart->click();
        QVERIFY(!QFileInfo::exists(entry));
        QVERIFY(!autostart->isChecked());
    }

    void execLineQuoting_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("plain") << "/usr/bin/quirepad";
        QTest::newRow("spaces and quotes") << "/opt/my \"apps\"/quire pad";
        QTest::newRow("dollar and percent") << "/opt/$HOME/100%/quirepad";
    }
    void execLineQuoting()
    {
        QFETCH(QString, program);
        const QByteArray text
            = "[Desktop Entry]\nType=Application\nName=Q\nExec=" + AutostartEntry::execLine(program).toUtf8() + "\n";
        const std::optional<DesktopEntry> entry = DesktopEntry::fromData(text, "/x/q.desktop");
        QVERIFY(entry);
        QCOMPARE(entry->commandFor({}), QStringList { program });
    }

    // `quirepad defaults write` in another process replaces the file.
    void settingsFileChangeIsShown()
    {
        QCheckBox* follow = general()->followMouseSwitch();
        QVERIFY(follow->isChecked());
        for (const bool value : { false, true }) {
            UserDefaults other(UserDefaults::standard().fileName());
            other.setValue(SettingKey::FollowMouse, value);
            other.sync();
            QTRY_COMPARE(follow->isChecked(), value);
        }
    }

    // The command line's `defaults write`, run while the window is open.
    void commandLineWriteIsShown()
    {
        const QString program = QCoreApplication::applicationDirPath() + "/quirepad";
        if (!QFileInfo(program).isExecutable())
            QSKIP("the quirepad executable is not built beside the tests");
        m_window.reset();
        UserDefaults::setStandard(std::make_unique<UserDefaults>()); // ~/.config/Quirepad, as the command uses
        UserDefaults::standard().setValue(SettingKey::FollowMouse, true);
        UserDefaults::standard().sync();
        m_window = std::make_unique<PreferencesWindow>(*m_fx.delegate);
        m_window->present();
        QCheckBox* follow = general()->followMouseSwitch();
        QVERIFY(follow->isChecked());
        QProcess command;
        command.start(program, { "defaults", "write", "follow_mouse", "no" });
        QVERIFY(command.waitForFinished(60000));
        QVERIFY2(command.exitCode() == 0, command.readAllStandardError().constData());
        QTRY_VERIFY(!follow->isChecked());
        QVERIFY(!UserDefaults::standard().boolValue(SettingKey::FollowMouse));
    }

    void driverInstall()
    {
        if (::geteuid() != 0)
            QSKIP("the installer runs through pkexec for a normal user");
        const QString driver = m_fx.root.filePath("driver");
        QVERIFY(QDir().mkpath(driver));
        QVERIFY(writeFile(driver + "/quirepad", "backend"));
        const QString installed = m_fx.root.filePath("installed");
        QVERIFY(writeFile(driver + "/install-driver.sh",
            QStringLiteral("#!/bin/sh\nmkdir -p '%1' && cp \"$(dirname \"$0\")/quirepad\" '%1/backend' && "
                           "touch '%1/quirepad.ppd'\n")
                .arg(installed)
                .toUtf8(),
            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        DriverInstaller::Paths paths;
        paths.installedBackend = installed + "/backend";
        paths.installedPpd = installed + "/quirepad.ppd";
        paths.shippedDriverFolder = driver;
        general()->setDriverPaths(paths);
        QVERIFY(general()->driverState()->text().contains("not installed"));
        general()->driverButton()->click();
        QVERIFY2(general()->driverState()->text().contains("up to date"), qPrintable(general()->driverState()->text()));
        QVERIFY(writeFile(driver + "/quirepad", "a newer backend"));
        general()->refreshDriverState();
        QVERIFY(general()->driverState()->text().contains("out of date"));
    }
};

// Pictures of the preferences window on an X server (xvfb-run, xcb), kept
// in QUIREPAD_SCREENSHOT_DIR.
class PreferencesScreenshotTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    std::unique_ptr<PreferencesWindow> m_window;
    PictureFolder m_pictures;

    void keep(const QString& name)
    {
        QTest::qWait(200); // the window paints itself
        const QImage image = m_window->grab().toImage();
        m_pictures.keep(image, name, 20);
    }
    void showFirst(const QString& typeLetter)
    {
        DestinationsPage* page = m_window->destinationsPage();
        for (int row = 0; row < page->model()->rowCount(); ++row)
            if (page->model()->itemAt(row)->type() == typeLetter) {
                page->list()->setCurrentIndex(page->model()->index(row));
                return;
            }
    }

private slots:
    void initTestCase()
    {
        if (!PictureFolder::available())
            QSKIP("needs an X server: run under xvfb-run with QT_QPA_PLATFORM=xcb");
        QVERIFY(m_pictures.open());
        m_fx.setUpEnvironment();
        m_fx.start();
        QVERIFY(QDir().mkpath(m_fx.root.filePath("home/Desktop")));
        m_window = std::make_unique<PreferencesWindow>(*m_fx.delegate);
        DestinationsPage* page = m_window->destinationsPage();
        for (const QString& letter : { "F", "K", "X" })
            page->addDestination(letter);
        m_window->present();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }

    void cleanupTestCase()
    {
        m_window.reset();
        m_fx.stop();
    }

    void folderDestination()
    {
        showFirst("F");
        QLineEdit* pattern = m_window->destinationsPage()->form()->lineEdit(DestinationForm::Pattern);
        pattern->setFocus();
        pattern->selectAll();
        QTest::keyClicks(pattern, "%u - %t.pdf");
        keep("preferences-folder.png");
        QTest::keyClicks(pattern, "%x");
        QVERIFY(!m_window->destinationsPage()->form()->message(DestinationForm::Pattern).isEmpty());
        keep("preferences-invalid.png");
        QTest::keyClick(pattern, Qt::Key_Backspace);
        QTest::keyClick(pattern, Qt::Key_Backspace); // valid again: leaving does not ask
    }

    void readerDestination()
    {
        showFirst("K");
        QCOMPARE(m_window->destinationsPage()->selectedItem()->type(), QStringLiteral("K"));
        keep("preferences-ereader.png");
    }

    void generalPage()
    {
        m_window->showPage(PreferencesWindow::General);
        keep("preferences-general.png");
    }
};

QUIREPAD_REGISTER_TEST(PreferencesTest);
QUIREPAD_REGISTER_TEST(PreferencesScreenshotTest);
#include "tst_preferences.moc"
