#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>

namespace quirepad {

// The one object a captured page can reach over the web channel, as
// "SSBDocument". It has nothing but its callback: no properties or signals
// of its own, and it knows the controller only through a function, so the
// channel publishes no other object of the program. (QObject's own members
// are published too; the web channel refuses deleteLater on registered
// objects, and objectName is reset should a page write it.)
class ScriptBridge final : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<void(const QString& message, const QVariant& data)>;
    explicit ScriptBridge(Handler handler, QObject* parent = nullptr);

public slots:
    void ssbcallback_data_(const QString& msg, const QVariant& data);

private:
    Handler m_handler;
};

} // namespace quirepad
