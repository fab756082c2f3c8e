#include "TestRegistry.h"
#include "PictureFolder.h"
#include "UiFixture.h"

#include "ui/ApplicationShell.h"
#include "ui/StatusMenu.h"

#include <QDir>
#include <QGuiApplication>
#include <QMenu>
#include <QScreen>
#include <QSet>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

namespace {

// Pixels of the area that differ from the colour at its corner.
int markedPixels(const QImage& image, const QRect& area)
{
    const QRgb background = image.pixel(area.topLeft());
    int marked = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            marked += image.pixel(x, y) != background;
    return marked;
}

} // namespace

// Pictures of the panel and the tray menu as an X server shows them; run
// under xvfb-run with the xcb platform. The pictures are kept in
// QUIREPAD_SCREENSHOT_DIR.
class ScreenshotTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    std::unique_ptr<ApplicationShell> m_shell;
    PictureFolder m_pictures;

    static QImage grab(const QRect& area) { return PictureFolder::grab(area); }
    void keep(const QImage& image, const QString& name) { m_pictures.keep(image, name); }

private slots:
    void initTestCase()
    {
        if (!PictureFolder::available())
            QSKIP("needs an X server: run under xvfb-run with QT_QPA_PLATFORM=xcb");
        QVERIFY(m_pictures.open());
        m_fx.setUpEnvironment();
        m_fx.start();
        m_shell = std::make_unique<ApplicationShell>(*m_fx.delegate);
    }

    void cleanupTestCase()
    {
        m_shell.reset();
        m_fx.stop();
    }

    void panelWithBuiltins()
    {
        DestinationPanel& panel = m_shell->panel();
        UserDefaults::standard().setValue("follow_mouse", true);
        m_fx.delegate->applicationContext().insert("do_follow_mouse", QPoint(640, 400));
        QImage picture, screen;
        QRect frame;
        runPanel(panel, [&] {
            QTest::qWait(400); // past the fade-in
            frame = panel.geometry();
            picture = grab(frame);
            screen = grab(QGuiApplication::primaryScreen()->geometry());
            panel.cancelOperation();
        });
        keep(picture, "panel.png");
        keep(screen, "screen-with-panel.png");
        QCOMPARE(frame, QRect(640 - 148, 400 - 84, 296, 168));
        QCOMPARE(picture.size(), frame.size());
        QVERIFY2(PictureFolder::distinctColours(picture) > 20, "the panel is blank");
        // Each of the two cells shows an icon and a title.
        for (int cell = 0; cell < 2; ++cell) {
            const QRect area(20 + cell * 128 + 4, 24, 120, 100);
            QVERIFY2(markedPixels(picture, area) > 300, qPrintable(QStringLiteral("cell %1 is empty").arg(cell)));
        }
    }

    void trayMenu()
    {
        QMenu* menu = m_shell->statusMenu().menu();
        menu->popup(QPoint(200, 120));
        QVERIFY(QTest::qWaitForWindowExposed(menu));
        QTest::qWait(300);
        const QImage picture = grab(menu->geometry());
        menu->hide();
        keep(picture, "tray-menu.png");
        keep(StatusMenu::statusIcon(false, 0).pixmap(64).toImage(), "tray-icon-idle.png");
        keep(StatusMenu::statusIcon(true, 3).pixmap(64).toImage(), "tray-icon-busy-3-waiting.png");
        QVERIFY(menu->actions().size() >= 11);
        QVERIFY2(PictureFolder::distinctColours(picture) > 20, "the menu is blank");
        QVERIFY(picture.height() > 11 * 15); // a line per entry at least
    }
};

QUIREPAD_REGISTER_TEST(ScreenshotTest);
#include "tst_screenshots.moc"
