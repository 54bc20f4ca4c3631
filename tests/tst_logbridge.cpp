#include "LogBridge.h"
#include "MessageSender.h"
#include "Receiver.h"
#include "ScriptedHost.h"

#include <QtTest/QtTest>

#include <array>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using SingleInstance::logLine;
using torvane::LogLevel;

class LogBridgeTest : public QObject {
    Q_OBJECT

private slots:
    void init() { ScriptedHost::reset(); }
    void filters_data();
    void filters();
    void writesPieces();
    void endsTheProcess_data();
    void endsTheProcess();
};

void LogBridgeTest::filters_data()
{
    QTest::addColumn<int>("threshold");
    QTest::addColumn<bool>("hasSink");
    QTest::addColumn<int>("written");
    QTest::addColumn<int>("sinkRequests");

    QTest::newRow("threshold below all levels") << -1 << true << 1 << 1;
    QTest::newRow("threshold at the level") << 3 << true << 1 << 1;
    QTest::newRow("threshold above the level") << 4 << true << 0 << 0;
    QTest::newRow("no sink") << 0 << false << 0 << 1;
}

void LogBridgeTest::filters()
{
    QFETCH(int, threshold);
    QFETCH(bool, hasSink);
    QFETCH(int, written);
    ScriptedHost::setThreshold(static_cast<LogLevel>(threshold));
    if (!hasSink)
        ScriptedHost::setSink({});

    int computed = 0;
    logLine(LogLevel::Warning, "value ", [&computed] { return ++computed; });

    QCOMPARE(ScriptedHost::takeLog().size(), written);
    QCOMPARE(computed, written);
    QTEST(ScriptedHost::sinkRequests(), "sinkRequests");
}

void LogBridgeTest::writesPieces()
{
    const QString text = QString::fromUtf8("ä☃ \"x\"\n");
    logLine(LogLevel::Info, "a ", -1234567, " ", quint16(65535), text, QString());
    QCOMPARE(ScriptedHost::takeLog(), QStringList("2 a -1234567 65535" + text));
}

void LogBridgeTest::endsTheProcess_data()
{
    QTest::addColumn<int>("precondition");
    QTest::addColumn<int>("threshold");
    QTest::addColumn<QByteArray>("output");

    const QByteArray prefix = "5 SingleInstanceController: ";
    QTest::newRow("empty body") << 0 << 5
                                << prefix + "sending empty message not supported!\ncatching off\n";
    QTest::newRow("long body") << 1 << 5 << prefix + "sending message is too long!\ncatching off\n";
    QTest::newRow("null socket") << 2 << 0
                                 << prefix
            + "Receiver cannot work with a null socket!\ncatching off\n";
    QTest::newRow("filtered line") << 0 << 6 << QByteArray("catching off\n");
}

void LogBridgeTest::endsTheProcess()
{
    QFETCH(int, precondition);
    QFETCH(int, threshold);
    std::array<int, 2> channel = {};
    QCOMPARE(::pipe(channel.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(channel[1], STDOUT_FILENO);
        ::signal(SIGABRT, SIG_DFL); // not Qt Test's report
        ScriptedHost::setThreshold(static_cast<LogLevel>(threshold));
        ScriptedHost::setSink([](LogLevel level, const std::wstring& text) {
            std::printf("%d %ls\n", static_cast<int>(level), text.c_str());
        });
        if (precondition < 2)
            SingleInstance::sendToMaster(QByteArray(precondition * 65536, 'x'));
        else
            SingleInstance::receiveMessage(nullptr, nullptr, nullptr);
        ::_exit(0);
    }
    ::close(channel[1]);
    QFile output;
    QVERIFY(output.open(channel[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle));
    QTEST(output.readAll(), "output");
    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QVERIFY(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
}

QTEST_APPLESS_MAIN(LogBridgeTest)
#include "tst_logbridge.moc"
