#include "TestRegistry.h"

#include "foundation/DeferredCall.h"
#include "foundation/deferred.h"
#include "foundation/runloop.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QTest>
#include <QTimer>

using namespace quirepad;

namespace {

// A target that records the calls it receives.
class Recorder : public QObject
{
    Q_OBJECT

public:
    struct Call {
        QString method;
        QStringList arguments;
        qint64 at;
    };
    QList<Call> calls;
    QElapsedTimer clock;

    Recorder() { clock.start(); }

public slots:
    void ping() { calls.append({"ping", {}, clock.elapsed()}); }
    void rescan(const QString& path) { calls.append({"rescan", {path}, clock.elapsed()}); }
    void pair(const QString& a, const QString& b) { calls.append({"pair", {a, b}, clock.elapsed()}); }
    void counted(int n) { calls.append({"counted", {QString::number(n)}, clock.elapsed()}); }
    void anything(const QVariant& v) { calls.append({"anything", {v.isValid() ? v.toString() : "<null>"}, clock.elapsed()}); }
};

} // namespace

class RunLoopTest : public QObject
{
    Q_OBJECT

private slots:
    void zeroSleepIsOnePass()
    {
        bool ran = false;
        QMetaObject::invokeMethod(this, [&] { ran = true; }, Qt::QueuedConnection);
        sleep_main_loop(0);
        QVERIFY(ran);
    }

    void sleepServesTimersAndReturnsAfterTheTime()
    {
        int fired = 0;
        QTimer::singleShot(10, this, [&] { ++fired; });
        QTimer::singleShot(60, this, [&] { ++fired; });
        QElapsedTimer clock;
        clock.start();
        sleep_main_loop(0.2);
        QVERIFY(clock.elapsed() >= 200);
        QCOMPARE(fired, 2);
    }

    void idleLoopHandlesWhatIsPending()
    {
        bool ran = false;
        QMetaObject::invokeMethod(this, [&] { ran = true; }, Qt::QueuedConnection);
        run_idle_loop();
        QVERIFY(ran);
    }

    void callAfterDelayWithArguments()
    {
        Recorder target;
        eval_func_after(&target, "pair", 0.05, {"one", "two"});
        eval_func_after(&target, "counted", 0.01, {QString("17")});
        QCOMPARE(target.calls.size(), 0); // never synchronously
        QTRY_COMPARE(target.calls.size(), 2);
        QCOMPARE(target.calls[0].method, QStringLiteral("counted"));
        QCOMPARE(target.calls[0].arguments, QStringList{"17"}); // converted to int and back
        QCOMPARE(target.calls[1].arguments, (QStringList{"one", "two"}));
        QVERIFY(target.calls[1].at >= 50);
    }

    void argumentsStopAtTheFirstNull_data()
    {
        QTest::addColumn<QVariantList>("arguments");
        QTest::addColumn<QStringList>("received");
        QTest::newRow("null first is still passed") << QVariantList{QVariant(), "x"} << QStringList{"", "x"};
        QTest::newRow("stop at later null") << QVariantList{"a", QVariant(), "c"} << QStringList{"a", ""};
        QTest::newRow("fewer than parameters") << QVariantList{"a"} << QStringList{"a", ""};
        QTest::newRow("none") << QVariantList{} << QStringList{"", ""};
    }

    void argumentsStopAtTheFirstNull()
    {
        QFETCH(QVariantList, arguments);
        QFETCH(QStringList, received);
        Recorder target;
        eval_func_after(&target, "pair", 0, arguments);
        QTRY_COMPARE(target.calls.size(), 1);
        QCOMPARE(target.calls[0].arguments, received);
    }

    void tooManyArgumentsAreRefused()
    {
        Recorder target;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("too many arguments"));
        QVERIFY(!DeferredCall::invoke(&target, "rescan", {"a", "b"}));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("no invokable method"));
        QVERIFY(!DeferredCall::invoke(&target, "noSuchMethod", {}));
        QVERIFY(DeferredCall::invoke(&target, "anything", {QVariant()}));
        QCOMPARE(target.calls.last().arguments, QStringList{"<null>"});
    }

    void laterSingleRequestReplacesPendingOne()
    {
        Recorder target;
        eval_single_func_after(&target, "rescan", 0.15, {"first"});
        sleep_main_loop(0.05);
        eval_single_func_after(&target, "rescan", 0.15, {"second"});
        const qint64 secondAt = target.clock.elapsed();
        QCOMPARE(DeferredCall::pendingCount(&target), 1);
        sleep_main_loop(0.4);
        QCOMPARE(target.calls.size(), 1);
        QCOMPARE(target.calls[0].arguments, QStringList{"second"});
        QVERIFY(target.calls[0].at >= secondAt + 150);
    }

    void singleRequestsForTwoTargetsBothRun()
    {
        Recorder a, b;
        eval_single_func_after(&a, "rescan", 0.02, {"a"});
        eval_single_func_after(&b, "rescan", 0.02, {"b"});
        eval_single_func_after(&a, "ping", 0.02); // another method: its own key
        QTRY_COMPARE(a.calls.size() + b.calls.size(), 3);
        sleep_main_loop(0.05);
        QCOMPARE(a.calls.size(), 2);
        QCOMPARE(b.calls.size(), 1);
    }

    void clearCancelsOnlyThatTarget()
    {
        Recorder a, b;
        eval_func_after(&a, "ping", 0.05);
        eval_func_after(&a, "rescan", 0.05, {"x"});
        eval_func_after(&b, "ping", 0.05);
        clear_all_notifications(&a);
        QCOMPARE(DeferredCall::pendingCount(&a), 0);
        QTRY_COMPARE(b.calls.size(), 1);
        sleep_main_loop(0.1);
        QCOMPARE(a.calls.size(), 0);
    }

    void destroyedTargetDropsTheCall()
    {
        auto target = std::make_unique<Recorder>();
        eval_func_after(target.get(), "ping", 0.02);
        target.reset();
        sleep_main_loop(0.1); // must neither crash nor touch freed memory
        QCOMPARE(DeferredCall::pendingCount(), 0);
    }

    void repeatingCallsUntilStopped()
    {
        Recorder target;
        QPointer<QTimer> timer = eval_func_every(&target, "counted", 0.02, {5});
        QTRY_VERIFY(target.calls.size() >= 3);
        timer->stop();
        const auto count = target.calls.size();
        sleep_main_loop(0.1);
        QCOMPARE(target.calls.size(), count);
        QCOMPARE(target.calls.first().arguments, QStringList{"5"});
        QCOMPARE(DeferredCall::pendingCount(&target), 0); // not in the pending list
    }
};

QUIREPAD_REGISTER_TEST(RunLoopTest);
#include "tst_runloop.moc"
