#include "TestRegistry.h"

#include <QApplication>
#include <QTest>

#include <cstdio>
#include <vector>

namespace quirepad::test {
std::map<QString, TestFactory>& testRegistry()
{
    static std::map<QString, TestFactory> registry;
    return registry;
}
} // namespace quirepad::test

// Usage: tst_<suite> [TestClass] [QtTest options...]
// Without a class name every registered class runs in turn.
int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    app.setApplicationName(QStringLiteral("Quirepad"));

    auto& registry = quirepad::test::testRegistry();
    std::vector<char*> args(argv, argv + argc);
    QString only;
    if (args.size() > 1 && args[1][0] != '-') {
        only = QString::fromLocal8Bit(args[1]);
        args.erase(args.begin() + 1);
        if (!registry.count(only)) {
            std::fprintf(stderr, "no test class named %s in this suite\n", qPrintable(only));
            return 2;
        }
    }

    int failures = 0;
    for (const auto& [name, factory] : registry) {
        if (!only.isEmpty() && name != only)
            continue;
        std::unique_ptr<QObject> testObject = factory();
        failures += QTest::qExec(testObject.get(), int(args.size()), args.data());
    }
    if (!only.isEmpty() || registry.size() == 1)
        return failures == 0 ? 0 : 1;
    std::printf("Suite totals: %d test class(es) with failures\n", failures);
    return failures == 0 ? 0 : 1;
}
