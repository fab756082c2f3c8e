#include "foundation/desktop.h"

#include "foundation/Log.h"
#include "foundation/PowerInhibitor.h"
#include "foundation/Workspace.h"

#include <QApplication>
#include <QPointer>
#include <QStringList>
#include <QWidget>

namespace quirepad {

namespace {

// The URL a value stands for; an empty QUrl when it holds none.
QUrl urlFromValue(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::QUrl:
        return value.toUrl();
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        return list.isEmpty() ? QUrl() : urlFromValue(list.constFirst());
    }
    case QMetaType::QStringList: {
        const QStringList list = value.toStringList();
        return list.isEmpty() ? QUrl() : urlFromValue(list.constFirst());
    }
    case QMetaType::QString:
    case QMetaType::QByteArray: {
        const QString text = value.toString();
        if (text.isEmpty())
            return QUrl();
        if (text.startsWith(u'/'))
            return QUrl::fromLocalFile(text);
        const QUrl url(text);
        return url.isValid() ? url : QUrl();
    }
    default:
        return QUrl();
    }
}

} // namespace

bool open_file(const QString& path)
{
    if (path.isEmpty())
        return false;
    return Workspace::current().openUrl(QUrl::fromLocalFile(path));
}

bool open_url(const QVariant& value)
{
    const QUrl url = urlFromValue(value);
    if (url.isEmpty())
        return false;
    if (url.isLocalFile())
        return open_file(url.toLocalFile());
    return Workspace::current().openUrl(url);
}

bool reveal_url(const QVariant& value)
{
    const QUrl url = urlFromValue(value);
    if (url.isEmpty())
        return false;
    if (url.isLocalFile())
        return Workspace::current().revealFile(url.toLocalFile());
    return Workspace::current().openUrl(url);
}

QByteArray url2bookmark(const QUrl& url)
{
    if (url.isEmpty())
        return QByteArray();
    return url.toEncoded();
}

QUrl bookmark2url(const QByteArray& bookmark)
{
    if (bookmark.isEmpty())
        return QUrl();
    const QUrl url = QUrl::fromEncoded(bookmark, QUrl::StrictMode);
    return url.isValid() ? url : QUrl();
}

void share_icloud(const QUrl& url, const QVariant& ignored)
{
    qCInfo(lcDesktop).noquote() << "no cloud container; not sharing" << url.toDisplayString();
}

void unshare_icloud(const QUrl& url, const QVariant& ignored)
{
    qCInfo(lcDesktop).noquote() << "no cloud container; not unsharing" << url.toDisplayString();
}

bool disable_app_nap(double seconds)
{
    // One inhibitor for the whole process, gone with the application object
    // (so its pending release timers never outlive the event loop).
    static QPointer<PowerInhibitor> inhibitor;
    if (!inhibitor) {
        QCoreApplication* app = QCoreApplication::instance();
        if (!app) {
            qCInfo(lcDesktop) << "cannot inhibit sleep without an application object";
            return false;
        }
        inhibitor = new PowerInhibitor(QDBusConnection::systemBus(), app);
    }
    return inhibitor->inhibitFor(seconds);
}

QWidget* first_responder()
{
    return QApplication::focusWidget();
}

void dump_responder_chain(QObject* object)
{
    QWidget* focus = QApplication::focusWidget();
    if (!object)
        object = focus;
    if (!object) {
        qCInfo(lcDesktop) << "responder chain: nothing has focus";
        return;
    }
    qCInfo(lcDesktop) << "responder chain:";
    for (int depth = 0; object; object = object->parent(), ++depth) {
        qCInfo(lcDesktop).noquote().nospace()
            << QString(depth * 2, u' ') << (object == focus ? "* " : "  ") << object->metaObject()->className()
            << (object->objectName().isEmpty() ? QString() : QStringLiteral(" \"%1\"").arg(object->objectName()))
            << " (" << static_cast<const void*>(object) << ')';
    }
}

} // namespace quirepad
