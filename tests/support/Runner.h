#pragma once

#include <QCoreApplication>
#include <QGuiApplication>
#include <QTest>

/// One test program for the classes of a folder: `tests_<folder> <Class> [QtTest's arguments]` runs one of
/// them.
namespace corvane::test {

/// Application of a class that needs a window.
class WindowApplication : public QGuiApplication
{
public:
    WindowApplication(int &argc, char **argv)
        : QGuiApplication(argc, argv)
    {
        setAttribute(Qt::AA_Use96Dpi);
    }
};

/// Application of a class whose subject works without any.
struct NoApplication
{
    NoApplication(int & /*argc*/, char ** /*argv*/) {}
};

/// Entry of a class in its program's list.
class Registration
{
public:
    using Run = int (*)(int argc, char **argv);

    /// `name`: the class on the command line; the text has to outlive the program's run.
    Registration(const char *name, Run run);
};

/// Runs a class under an application of its own. Exit code: number of failures, as QTest::qExec() counts.
template <class Test, class Application>
int runTest(int argc, char **argv)
{
    [[maybe_unused]] Application application(argc, argv);
    Test test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace corvane::test

/// Lists `tst_Name` as "Name", to be run under an `Application` made of argc and argv.
#define CORVANE_TEST(Test, Application)                                                                      \
    namespace {                                                                                              \
    const ::corvane::test::Registration registered_##Test(&#Test[4],                                         \
                                                          ::corvane::test::runTest<Test, Application>);      \
    }
