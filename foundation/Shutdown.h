#pragma once

#include <QObject>

namespace quirepad {

// The program is ending (Quit, SIGTERM): every wait stops waiting, running
// children are stopped, and nothing asks the user anything any more. The
// work in hand is left as it is (a spool job stays for the next run).
class Shutdown : public QObject
{
    Q_OBJECT

public:
    static Shutdown& instance();
    static bool isRequested();
    // Marks the program as ending, tells every waiter, then asks the event
    // loop to quit.
    static void request();
    // Tests start over.
    static void reset();

signals:
    void requested();

private:
    Shutdown() = default;
    bool m_requested = false;
};

} // namespace quirepad
