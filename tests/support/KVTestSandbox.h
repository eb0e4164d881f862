#pragma once

#include <QApplication>
#include <QString>
#include <QTemporaryDir>
#include <QtTest>

// A throw-away home for one test process: HOME, the XDG folders (the runtime folder too), TMPDIR, the applications
// folder and the administrator's policy file all point into a fresh temporary folder, so nothing a test does reaches
// the real user's settings, logs or applications. Construct it before anything reads those paths.
class KVTestSandbox
{
public:
    KVTestSandbox();
    ~KVTestSandbox();

    static KVTestSandbox &current();

    QString root() const { return m_root.path(); }
    QString home() const;
    QString dataHome() const;   // XDG_DATA_HOME, the "Application Support" folder
    QString configHome() const; // XDG_CONFIG_HOME
    QString temporaryDirectory() const;
    QString runtimeDirectory() const; // XDG_RUNTIME_DIR
    QString applicationsDirectory() const;
    QString policyFile() const; // NESTORA_POLICY_FILE, absent until a test writes it

    // Removes everything the tests wrote below the sandbox and recreates its empty folders.
    void reset();

private:
    QTemporaryDir m_root;
};

// A Qt Test main() that runs the test object inside a KVTestSandbox.
#define NESTORA_TEST_MAIN(TestObject)                                                                                  \
    int main(int argc, char *argv[])                                                                                   \
    {                                                                                                                  \
        KVTestSandbox sandbox;                                                                                         \
        QApplication application(argc, argv);                                                                          \
        application.setAttribute(Qt::AA_Use96Dpi, true);                                                               \
        TestObject test;                                                                                               \
        QTEST_SET_MAIN_SOURCE_PATH                                                                                     \
        return QTest::qExec(&test, argc, argv);                                                                        \
    }
