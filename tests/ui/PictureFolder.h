#pragma once

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QScreen>
#include <QSet>
#include <QTest>

namespace quirepad::test {

// Where the picture tests keep what they draw: QUIREPAD_SCREENSHOT_DIR,
// else a folder under the temporary one. Pictures are taken off the X
// server's screen, so that window decorations and popups of other programs
// show as the user sees them.
class PictureFolder
{
public:
    // Whether pictures can be taken here: an X server (xvfb-run, xcb).
    static bool available() { return QGuiApplication::platformName() == QLatin1String("xcb"); }

    bool open()
    {
        const QString dir
            = qEnvironmentVariable("QUIREPAD_SCREENSHOT_DIR", QDir::temp().filePath("quirepad-screenshots"));
        m_dir = QDir(dir);
        return QDir().mkpath(dir);
    }

    static QImage grab(const QRect& area)
    {
        return QGuiApplication::primaryScreen()
            ->grabWindow(0, area.x(), area.y(), area.width(), area.height())
            .toImage();
    }

    static int distinctColours(const QImage& image)
    {
        QSet<QRgb> colours;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                colours.insert(image.pixel(x, y));
        return int(colours.size());
    }

    // Saves the picture under name; with minimumColours, a picture with
    // fewer distinct colours counts as blank and fails the test.
    void keep(const QImage& image, const QString& name, int minimumColours = 0) const
    {
        QVERIFY2(distinctColours(image) > minimumColours, qPrintable(name + " is blank"));
        QVERIFY2(image.save(m_dir.filePath(name)), qPrintable(m_dir.filePath(name)));
        qInfo().noquote() << "picture:" << m_dir.filePath(name);
    }

private:
    QDir m_dir;
};

} // namespace quirepad::test
