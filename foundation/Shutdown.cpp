#include "foundation/Shutdown.h"

#include <QCoreApplication>

namespace quirepad {

Shutdown& Shutdown::instance()
{
    static Shutdown shutdown;
    return shutdown;
}

bool Shutdown::isRequested()
{
    return instance().m_requested;
}

void Shutdown::request()
{
    Shutdown& self = instance();
    if (!self.m_requested) {
        self.m_requested = true;
        emit self.requested();
    }
    QCoreApplication::quit();
}

void Shutdown::reset()
{
    instance().m_requested = false;
}

} // namespace quirepad
