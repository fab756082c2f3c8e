#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <map>
#include <memory>

namespace quirepad::test {

using TestFactory = std::function<std::unique_ptr<QObject>()>;

// Test classes of one suite executable register themselves here; the shared
// main() runs one of them by name (as CTest does) or all of them.
std::map<QString, TestFactory>& testRegistry();

template <class T>
struct TestRegistrar {
    explicit TestRegistrar(const char* name)
    {
        testRegistry().emplace(QString::fromLatin1(name), [] { return std::make_unique<T>(); });
    }
};

} // namespace quirepad::test

#define QUIREPAD_REGISTER_TEST(Class) \
    static const quirepad::test::TestRegistrar<Class> s_registrar_##Class(#Class)
