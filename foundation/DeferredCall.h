#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QVariantList>

#include <memory>
#include <vector>

namespace quirepad {

// One pending call of a method (a slot or Q_INVOKABLE, found by name) on a
// target object after a delay. Every pending call is kept in one
// process-wide list until its timer fires or it is cancelled; the pair
// (method name, target) is its key.
class DeferredCall : public QObject
{
    Q_OBJECT

public:
    DeferredCall(QObject* target, const QByteArray& method, double delaySeconds, const QVariantList& arguments);
    ~DeferredCall() override;

    QObject* destination() const { return m_destination; }
    QByteArray event() const { return m_event; }
    bool isAsynchronous() const { return true; }
    void invalidate();

    // Schedules a call and adds it to the list.
    static DeferredCall* schedule(QObject* target, const QByteArray& method, double delaySeconds,
                                  const QVariantList& arguments);
    // Cancels the first pending call with this key; answers whether one was.
    static bool cancelFirst(QObject* target, const QByteArray& method);
    // Cancels every pending call of the target.
    static int cancelAll(QObject* target);
    static int pendingCount(QObject* target = nullptr);

    // Calls a method by name with the arguments converted to its parameter
    // types. The first argument is passed even when it is null; the later
    // ones up to the first null. Answers whether the call was made.
    static bool invoke(QObject* target, const QByteArray& method, const QVariantList& arguments);

private:
    void trigger();

    static std::vector<std::unique_ptr<DeferredCall>>& pending();

    QPointer<QObject> m_destination;
    QByteArray m_event;
    QVariantList m_arguments;
    QTimer m_timer;
};

} // namespace quirepad
