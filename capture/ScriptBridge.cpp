#include "capture/ScriptBridge.h"

namespace quirepad {

ScriptBridge::ScriptBridge(Handler handler, QObject* parent)
    : QObject(parent)
    , m_handler(std::move(handler))
{
    // The web channel lets a page write published properties; objectName is
    // the only one there is, and it stays empty.
    connect(this, &QObject::objectNameChanged, this, [this](const QString& name) {
        if (!name.isEmpty())
            setObjectName(QString());
    });
}

void ScriptBridge::ssbcallback_data_(const QString& msg, const QVariant& data)
{
    if (m_handler)
        m_handler(msg, data);
}

} // namespace quirepad
