#include "TestRegistry.h"
#include "UiFixture.h"

#include "ui/CollectionItemView.h"
#include "ui/DestinationPanelView.h"
#include "ui/window_ext.h"

#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

using namespace quirepad;
using namespace quirepad::test;

namespace {

QStringList numbered(int count)
{
    QStringList names;
    for (int i = 1; i <= count; ++i)
        names << QStringLiteral("Dest %1").arg(i);
    return names;
}

// Presses a space-separated list of keys on the widget: named keys, or
// text typed as it stands.
void press(QWidget* widget, const QString& keys)
{
    static const QHash<QString, Qt::Key> named{
        {"Left", Qt::Key_Left},     {"Right", Qt::Key_Right}, {"Up", Qt::Key_Up},
        {"Down", Qt::Key_Down},     {"Return", Qt::Key_Return}, {"Escape", Qt::Key_Escape},
    };
    for (const QString& key : keys.split(u' ', Qt::SkipEmptyParts)) {
        if (named.contains(key))
            QTest::keyClick(widget, named.value(key));
        else
            QTest::keyClicks(widget, key);
    }
}

} // namespace

class DestinationPanelTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    std::unique_ptr<DestinationPanel> m_panel;
    QRect m_visible;

    DestinationPanelView* view() const { return m_panel->destinationView(); }

private slots:
    void initTestCase() { m_fx.setUpEnvironment(); }

    void init()
    {
        m_fx.start();
        m_visible = QRect(0, 0, 1600, 1000);
        m_panel = std::make_unique<DestinationPanel>(*m_fx.delegate);
        m_panel->setVisibleFrameProvider([this](const QPoint&) { return m_visible; });
    }

    void cleanup()
    {
        m_panel.reset();
        m_fx.stop();
    }

    void layout_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("maxcount");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("columns");
        QTest::newRow("no destinations: three empty cells") << 0 << 5 << QSize(424, 168) << 3;
        QTest::newRow("one") << 1 << 5 << QSize(168, 168) << 1;
        QTest::newRow("two") << 2 << 5 << QSize(296, 168) << 2;
        QTest::newRow("a full row") << 5 << 5 << QSize(680, 168) << 5;
        QTest::newRow("seven in rows of five") << 7 << 5 << QSize(680, 296) << 5;
        QTest::newRow("eleven in rows of five") << 11 << 5 << QSize(680, 424) << 5;
        QTest::newRow("seven in rows of three") << 7 << 3 << QSize(424, 424) << 3;
    }

    void layout()
    {
        QFETCH(int, count);
        QFETCH(int, maxcount);
        QFETCH(QSize, size);
        QFETCH(int, columns);
        m_fx.menuOf(numbered(count));
        UserDefaults::standard().setValue("maxcount", maxcount);

        QSize shown;
        int rowLength = 0;
        QStringList titles;
        QRect lastCell;
        const QString chosen = runPanel(*m_panel, [&] {
            shown = m_panel->size();
            rowLength = view()->rowLength();
            for (const QVariant& item : m_panel->destnationList())
                titles << item.toMap().value("title").toString();
            if (count > 0)
                lastCell = view()->itemViewAt(count - 1)->geometry();
            press(view(), "Escape");
        });
        QVERIFY(chosen.isNull());
        QCOMPARE(shown, size);
        QCOMPARE(rowLength, columns);
        QCOMPARE(titles, numbered(count));
        if (count > 0) // the last cell sits in the last row and column it belongs to
            QCOMPARE(lastCell.topLeft(), QPoint((count - 1) % columns * 128, (count - 1) / columns * 128));
    }

    void keyboard_data()
    {
        QTest::addColumn<QString>("keys");
        QTest::addColumn<QString>("chosen");
        QTest::newRow("focus selects the first") << "Return" << "Dest 1";
        QTest::newRow("right twice") << "Right Right Return" << "Dest 3";
        QTest::newRow("left at the first stays") << "Left Return" << "Dest 1";
        QTest::newRow("down one row") << "Down Return" << "Dest 6";
        QTest::newRow("down on the last row: the last") << "Right Right Right Down Return" << "Dest 7";
        QTest::newRow("down twice clamps") << "Down Down Return" << "Dest 7";
        QTest::newRow("right at the last stays") << "Down Right Right Right Return" << "Dest 7";
        QTest::newRow("up clamps to the first") << "Right Up Return" << "Dest 1";
        QTest::newRow("down then up") << "Right Down Up Return" << "Dest 2";
        QTest::newRow("enter key too") << "Right" << "Dest 2";
    }

    void keyboard()
    {
        QFETCH(QString, keys);
        QFETCH(QString, chosen);
        m_fx.menuOf(numbered(7));
        int atOpen = -2;
        const QString answer = runPanel(*m_panel, [&] {
            atOpen = view()->selectionIndex();
            press(view(), keys);
            if (!keys.endsWith(QLatin1String("Return")))
                QTest::keyClick(view(), Qt::Key_Enter, Qt::KeypadModifier);
        });
        QCOMPARE(atOpen, 0);
        QCOMPARE(answer, chosen);
        QVERIFY(!m_panel->isVisible());
    }

    void typeToSelect_data()
    {
        QTest::addColumn<QString>("keys");
        QTest::addColumn<int>("selected");
        // The built-ins, in their order: "Open in Preview", "Copy to Desktop".
        // Titles match by their beginning: with the first selected on
        // opening, p leaves "Open in Preview" selected; after moving on,
        // p starts no title and the selection stays where it is.
        QTest::newRow("p with the built-ins: Open in Preview") << "p" << 0;
        QTest::newRow("capital P too") << "P" << 0;
        QTest::newRow("c picks Copy to Desktop") << "c" << 1;
        QTest::newRow("o picks Open in Preview") << "Right o" << 0;
        QTest::newRow("capital O too") << "Right O" << 0;
        QTest::newRow("p starts no title: unchanged") << "Right p" << 1;
        QTest::newRow("x starts no title: unchanged") << "Right x" << 1;
        QTest::newRow("digits neither") << "Right 7" << 1;
    }

    void typeToSelect()
    {
        QFETCH(QString, keys);
        QFETCH(int, selected);
        int seen = -2;
        const QString answer = runPanel(*m_panel, [&] {
            press(view(), keys);
            seen = view()->selectionIndex();
            press(view(), "Return");
        });
        QCOMPARE(seen, selected);
        QCOMPARE(view()->indexForName("OPEN in"), 0);
        QCOMPARE(view()->indexForName("Desktop"), -1);
        QCOMPARE(answer, selected == 0 ? QStringLiteral("Open in Preview") : QStringLiteral("Copy to Desktop"));
    }

    void endings_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<int>("preferences");
        QTest::newRow("escape") << "escape" << QString() << 0;
        QTest::newRow("closing") << "close" << QString() << 0;
        QTest::newRow("preferences") << "preferences" << QString() << 1;
        QTest::newRow("double click") << "double click" << "Copy to Desktop" << 0;
        QTest::newRow("click on the icon") << "click icon" << "Open in Preview" << 0;
    }

    void endings()
    {
        QFETCH(QString, how);
        QFETCH(QString, chosen);
        QFETCH(int, preferences);
        QSignalSpy preferencesSpy(m_panel.get(), &DestinationPanel::preferencesRequested);
        const QString answer = runPanel(*m_panel, [&] {
            if (how == QLatin1String("escape")) {
                press(view(), "Escape");
            } else if (how == QLatin1String("close")) {
                m_panel->close();
            } else if (how == QLatin1String("preferences")) {
                QToolButton* gear = nullptr;
                for (QToolButton* button : m_panel->findChildren<QToolButton*>())
                    if (button->parent() == m_panel.get())
                        gear = button;
                QVERIFY(gear);
                gear->click();
            } else if (how == QLatin1String("double click")) {
                // Below the icon, on the title: the cell, not its button.
                CollectionItemView* cell = view()->itemViewAt(1);
                QTest::mouseDClick(cell, Qt::LeftButton, {}, QPoint(4, cell->height() - 4));
            } else {
                QToolButton* button = view()->itemViewAt(0)->buttonWithTag(CollectionItemView::kButtonTag);
                QTest::mouseClick(button, Qt::LeftButton);
            }
        });
        QCOMPARE(answer, chosen);
        QCOMPARE(answer.isNull(), chosen.isNull());
        QCOMPARE(preferencesSpy.count(), preferences);
        QVERIFY(!m_panel->isVisible());
    }

    void placement_data()
    {
        QTest::addColumn<QRect>("visible");
        QTest::addColumn<QPoint>("mouse");
        QTest::addColumn<QPoint>("origin");
        // Two destinations: a panel of 296 x 168.
        QTest::newRow("centred on the mouse") << QRect(0, 0, 1600, 1000) << QPoint(800, 500) << QPoint(652, 416);
        QTest::newRow("bottom right corner") << QRect(0, 0, 1600, 1000) << QPoint(1595, 995) << QPoint(1304, 832);
        QTest::newRow("top left of a second screen")
            << QRect(1600, 40, 1280, 800) << QPoint(1602, 41) << QPoint(1600, 40);
        QTest::newRow("under a top bar") << QRect(0, 32, 1600, 968) << QPoint(400, 40) << QPoint(252, 32);
    }

    void placement()
    {
        QFETCH(QRect, visible);
        QFETCH(QPoint, mouse);
        QFETCH(QPoint, origin);
        m_visible = visible;
        UserDefaults::standard().setValue("follow_mouse", true);
        m_fx.delegate->applicationContext().insert("do_follow_mouse", mouse);
        QRect frame;
        runPanel(*m_panel, [&] {
            frame = m_panel->geometry();
            press(view(), "Escape");
        });
        QCOMPARE(frame.topLeft(), origin);
        QVERIFY(visible.contains(frame));
        // The point is used once: a later panel does not jump back to it.
        QVERIFY(!m_fx.delegate->applicationContext().contains("do_follow_mouse"));
    }

    void keepsOriginAndTopEdge()
    {
        UserDefaults::standard().setValue("follow_mouse", true);
        m_fx.delegate->applicationContext().insert("do_follow_mouse", QPoint(300, 300));
        QRect first, second, third;
        runPanel(*m_panel, [&] {
            first = m_panel->geometry();
            m_panel->cancelOperation();
        });
        // No new job, no point: the panel opens where it was, grown downwards.
        m_fx.menuOf(numbered(7));
        runPanel(*m_panel, [&] {
            second = m_panel->geometry();
            m_panel->cancelOperation();
        });
        // Following switched off: a recorded point is ignored.
        UserDefaults::standard().setValue("follow_mouse", false);
        m_fx.delegate->applicationContext().insert("do_follow_mouse", QPoint(1200, 900));
        m_fx.menuOf(numbered(1));
        runPanel(*m_panel, [&] {
            third = m_panel->geometry();
            m_panel->cancelOperation();
        });
        QCOMPARE(first, QRect(152, 216, 296, 168));
        QCOMPARE(second, QRect(152, 216, 680, 296));
        QCOMPARE(third, QRect(152, 216, 168, 168));
    }

    void constrainToVisibleFrame_data()
    {
        QTest::addColumn<QRect>("frame");
        QTest::addColumn<QRect>("visible");
        QTest::addColumn<QRect>("expected");
        const QRect screen(0, 0, 1000, 800);
        QTest::newRow("inside stays") << QRect(100, 100, 200, 100) << screen << QRect(100, 100, 200, 100);
        QTest::newRow("over the left edge") << QRect(-50, 100, 200, 100) << screen << QRect(0, 100, 200, 100);
        QTest::newRow("over the bottom right") << QRect(900, 750, 200, 100) << screen << QRect(800, 700, 200, 100);
        QTest::newRow("larger than the screen keeps top left")
            << QRect(-30, -30, 1200, 900) << screen << QRect(0, 0, 1200, 900);
        QTest::newRow("no screen known") << QRect(-50, -50, 10, 10) << QRect() << QRect(-50, -50, 10, 10);
    }

    void constrainToVisibleFrame()
    {
        QFETCH(QRect, frame);
        QFETCH(QRect, visible);
        QFETCH(QRect, expected);
        QCOMPARE(quirepad::constrainToVisibleFrame(frame, visible), expected);
    }

    void answeredAsItOpens()
    {
        // An answer given while the panel is being shown ends the session.
        bool guardFired = false;
        QTimer::singleShot(3000, m_panel.get(), [&] {
            guardFired = true;
            m_panel->cancelOperation();
        });
        auto connection = connect(m_panel.get(), &DestinationPanel::choosing, this, [this] {
            m_panel->selectDestination(view()->itemViewAt(1));
        });
        const QString answer = m_panel->chooseDestination();
        disconnect(connection);
        QVERIFY(!guardFired);
        QCOMPARE(answer, QStringLiteral("Copy to Desktop"));
    }

    void busyPanelAnswersNil()
    {
        // A second question while one waits (a nested scan) gets no answer.
        QString nested = QStringLiteral("unset");
        const QString answer = runPanel(*m_panel, [&] {
            nested = m_panel->chooseDestination();
            press(view(), "Return");
        });
        QVERIFY(nested.isNull());
        QCOMPARE(answer, QStringLiteral("Open in Preview"));
    }
};

QUIREPAD_REGISTER_TEST(DestinationPanelTest);
#include "tst_panel.moc"
