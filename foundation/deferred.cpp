#include "foundation/deferred.h"

#include "foundation/DeferredCall.h"

#include <QTimer>

namespace quirepad {

void eval_func_after(QObject* target, const char* method, double delaySeconds, const QVariantList& arguments)
{
    DeferredCall::schedule(target, QByteArray(method), delaySeconds, arguments);
}

void eval_single_func_after(QObject* target, const char* method, double delaySeconds, const QVariantList& arguments)
{
    DeferredCall::cancelFirst(target, QByteArray(method));
    DeferredCall::schedule(target, QByteArray(method), delaySeconds, arguments);
}

QTimer* eval_func_every(QObject* target, const char* method, double periodSeconds, const QVariantList& arguments)
{
    auto* timer = new QTimer(target); // owned by the target
    const QByteArray name(method);
    QObject::connect(timer, &QTimer::timeout, target,
                     [target, name, arguments] { DeferredCall::invoke(target, name, arguments); });
    timer->start(qMax(1, int(periodSeconds * 1000.0)));
    return timer;
}

void clear_all_notifications(QObject* target)
{
    DeferredCall::cancelAll(target);
}

} // namespace quirepad
