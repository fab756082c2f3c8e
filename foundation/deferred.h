#pragma once

#include <QByteArray>
#include <QObject>
#include <QVariantList>

class QTimer;

namespace quirepad {

// Calls a method of the target (a slot or Q_INVOKABLE, by name) once after
// the delay, with the arguments converted to its parameter types. A call
// whose target is destroyed before it is due is dropped.
void eval_func_after(QObject* target, const char* method, double delaySeconds, const QVariantList& arguments = {});

// The same, but a pending call of the same method on the same target is
// cancelled first: only the last request runs, a full delay after it.
void eval_single_func_after(QObject* target, const char* method, double delaySeconds,
                            const QVariantList& arguments = {});

// Calls the method every period until the returned timer is stopped or the
// target is destroyed (the timer is the target's child).
QTimer* eval_func_every(QObject* target, const char* method, double periodSeconds,
                        const QVariantList& arguments = {});

// Cancels every pending deferred call of the target.
void clear_all_notifications(QObject* target);

} // namespace quirepad
