#include "capture/CaptureWorker.h"

#include <QApplication>

#include <cstdio>

#include <unistd.h>

namespace {

// Chromium's sandbox cannot run as root, and Chromium then ends the process
// without a word. The sandbox is never turned off here: whoever runs the
// worker as root (a test, a container) says so with
// QTWEBENGINE_DISABLE_SANDBOX=1 (or --no-sandbox in QTWEBENGINE_CHROMIUM_FLAGS).
bool sandboxBlockedByRoot()
{
    if (::geteuid() != 0)
        return false;
    if (qEnvironmentVariableIntValue("QTWEBENGINE_DISABLE_SANDBOX") != 0)
        return false;
    return !qEnvironmentVariable("QTWEBENGINE_CHROMIUM_FLAGS").contains(QLatin1String("--no-sandbox"));
}

} // namespace

int main(int argc, char** argv)
{
    // Without a display the page is drawn off screen; it never needs one.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY")
        && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    app.setApplicationName(QStringLiteral("Quirepad"));
    app.setQuitOnLastWindowClosed(false);

    const QStringList arguments = app.arguments();
    const bool help = arguments.contains(QLatin1String("--help")) || arguments.contains(QLatin1String("-h"));
    if (!help && sandboxBlockedByRoot()) {
        std::fputs("quirepad-webcapture: Chromium's sandbox cannot run as root; run it as a normal user "
                   "(or set QTWEBENGINE_DISABLE_SANDBOX=1 to capture without the sandbox)\n",
                   stderr);
        return 1;
    }
    return quirepad::run_webcapture_worker(arguments);
}
