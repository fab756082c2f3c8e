#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <functional>

namespace quirepad {

// A page_url argument: the address, then optionally a tab and the base64
// text of a property-list dictionary of capture parameters.
struct PageUrlRequest
{
    QUrl url; // invalid when the text is not an address
    QVariantMap parameters;
};
PageUrlRequest parsePageUrl(const QString& pageUrl);

// The program's scripting interface on the session bus: the service
// "com.halvern.Quirepad", object "/com/halvern/Quirepad", interface
// "com.halvern.Quirepad" with PrintWebView(page_url) -> the file URL of the
// page's PDF, or "" when there is none.
class ScriptingService : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.halvern.Quirepad")
public:
    static constexpr const char* ServiceName = "com.halvern.Quirepad";
    static constexpr const char* ObjectPath = "/com/halvern/Quirepad";

    // capture: the page and its parameters -> the PDF's path, or empty.
    using Capture = std::function<QString(const QUrl&, const QVariantMap&)>;
    explicit ScriptingService(Capture capture, QObject* parent = nullptr);

    // Registers on the session bus; false (with the reason logged) when
    // there is no session bus or the name is taken.
    bool registerOnSessionBus();

public slots:
    QString PrintWebView(const QString& page_url);

private:
    Capture m_capture;
};

} // namespace quirepad
