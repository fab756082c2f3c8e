#include "foundation/DeferredCall.h"

#include "foundation/Log.h"

#include <QMetaMethod>

#include <algorithm>
#include <array>

namespace quirepad {

DeferredCall::DeferredCall(QObject* target, const QByteArray& method, double delaySeconds,
                           const QVariantList& arguments)
    : m_destination(target)
    , m_event(method)
    , m_arguments(arguments)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &DeferredCall::trigger);
    m_timer.start(qMax(0, int(delaySeconds * 1000.0)));
}

DeferredCall::~DeferredCall() = default;

void DeferredCall::invalidate()
{
    m_timer.stop();
}

std::vector<std::unique_ptr<DeferredCall>>& DeferredCall::pending()
{
    static std::vector<std::unique_ptr<DeferredCall>> list;
    return list;
}

DeferredCall* DeferredCall::schedule(QObject* target, const QByteArray& method, double delaySeconds,
                                     const QVariantList& arguments)
{
    auto call = std::make_unique<DeferredCall>(target, method, delaySeconds, arguments);
    DeferredCall* raw = call.get();
    pending().push_back(std::move(call));
    return raw;
}

bool DeferredCall::cancelFirst(QObject* target, const QByteArray& method)
{
    auto& list = pending();
    const auto it = std::find_if(list.begin(), list.end(), [&](const auto& call) {
        return call->m_event == method && call->m_destination == target;
    });
    if (it == list.end())
        return false;
    (*it)->invalidate();
    list.erase(it);
    return true;
}

int DeferredCall::cancelAll(QObject* target)
{
    auto& list = pending();
    const auto first = std::stable_partition(list.begin(), list.end(),
                                             [&](const auto& call) { return call->m_destination != target; });
    for (auto it = first; it != list.end(); ++it)
        (*it)->invalidate();
    const int count = int(std::distance(first, list.end()));
    list.erase(first, list.end());
    return count;
}

int DeferredCall::pendingCount(QObject* target)
{
    const auto& list = pending();
    return int(std::count_if(list.begin(), list.end(),
                             [&](const auto& call) { return !target || call->m_destination == target; }));
}

void DeferredCall::trigger()
{
    // Leave the list before the call, so the call may schedule its own
    // successor under the same key; the object goes once control returns
    // to the event loop.
    auto& list = pending();
    const auto it = std::find_if(list.begin(), list.end(), [this](const auto& call) { return call.get() == this; });
    if (it == list.end())
        return;
    std::unique_ptr<DeferredCall> self = std::move(*it);
    list.erase(it);
    self.release()->deleteLater();

    if (!m_destination) {
        qCDebug(lcFoundation) << "deferred call of" << m_event << "dropped: its target is gone";
        return;
    }
    invoke(m_destination, m_event, m_arguments);
}

bool DeferredCall::invoke(QObject* target, const QByteArray& method, const QVariantList& arguments)
{
    if (!target)
        return false;
    // The arguments actually passed: the first always, then up to the first null.
    qsizetype given = arguments.isEmpty() ? 0 : 1;
    while (given < arguments.size() && arguments.at(given).isValid())
        ++given;

    const QMetaObject* meta = target->metaObject();
    QMetaMethod chosen;
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod candidate = meta->method(i);
        if (candidate.name() != method || candidate.parameterCount() > 10)
            continue;
        if (!chosen.isValid() || (candidate.parameterCount() >= given && chosen.parameterCount() < given))
            chosen = candidate;
        if (chosen.parameterCount() == given)
            break;
    }
    if (!chosen.isValid()) {
        qCWarning(lcFoundation) << meta->className() << "has no invokable method" << method;
        return false;
    }
    if (given > chosen.parameterCount()) {
        qCWarning(lcFoundation) << "too many arguments for" << meta->className() << method;
        return false;
    }

    // Values converted to the parameter types; a QVariant parameter takes
    // the argument as it is, a missing one is default-constructed.
    std::array<QVariant, 10> values;
    std::array<QGenericArgument, 10> generic;
    for (int i = 0; i < chosen.parameterCount(); ++i) {
        const QMetaType type = chosen.parameterMetaType(i);
        const QVariant argument = i < given ? arguments.at(i) : QVariant();
        if (type == QMetaType::fromType<QVariant>()) {
            values[i] = argument;
            generic[i] = QGenericArgument("QVariant", &values[i]);
            continue;
        }
        QVariant converted = argument;
        if (!converted.isValid() || !converted.convert(type))
            converted = QVariant(type);
        values[i] = converted;
        generic[i] = QGenericArgument(type.name(), values[i].constData());
    }
    return chosen.invoke(target, Qt::DirectConnection, generic[0], generic[1], generic[2], generic[3], generic[4],
                         generic[5], generic[6], generic[7], generic[8], generic[9]);
}

} // namespace quirepad
