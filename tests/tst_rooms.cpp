#include "Activation.h"
#include "ApplicationFolder.h"
#include "FileLock.h"
#include "HandOver.h"
#include "Inbox.h"
#include "MessageFormat.h"
#include "Registry.h"
#include "SettingsSlot.h"
#include "Successor.h"
#include "WaitingLists.h"

#include <Core/Settings.h>
#include <HostKit/InstanceSession.h>
#include <HostKit/Log.h>

#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

#include <array>
#include <csignal>
#include <future>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace HostKit;

namespace {

/* A session that does not start this program anew for what it has not received. */
struct Session : InstanceSession {
    Session() { setRestartCommand({}); }
};

QString value(const char* key = "MasterPort")
{
    const QVariant none("none");
    return Core::Settings::getInstance()->getValue("SingleInstance", key, none).toString();
}

void setValue(const QString& value, const char* key = "MasterPort")
{
    Core::Settings::getInstance()->setValue("SingleInstance", key, value, true);
}

QByteArray contentOf(const QString& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray output(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished();
    return process.readAll();
}

int threadsThatTakeSignals()
{
    int count = 0;
    for (const QString& thread :
         QDir("/proc/self/task").entryList(QDir::NoDotAndDotDot | QDir::Dirs))
        count += contentOf("/proc/self/task/" + thread + "/status").contains("SigBlk:\t00000000");
    return count;
}

} // namespace

/* The rooms of HostKit, each by its door. */
class RoomsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(!qEnvironmentVariableIsSet("HOSTKIT_STARTED_FOR")); }

    void init()
    {
        QCoreApplication::setOrganizationName("maker");
        QCoreApplication::setApplicationName("program"); // also in the name of the folder
        home = std::make_unique<QTemporaryDir>();
        QVERIFY(home->isValid());
        qputenv("HOME", QFile::encodeName(home->path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->filePath("settings")));
    }

    void keepsValuesApart()
    {
        for (const QString& name : {QString("../a b/ü"), QString(".."), // they lead nowhere else
                                    QString(200, QChar(0x42F)) + 'a', // too long for a file
                                    QString(200, QChar(0x42F)) + 'b'}) {
            QCoreApplication::setApplicationName(name);
            QCOMPARE(value(), "none");
            setValue(name);
            QCOMPARE(value(), name);
        }
        const QDir folder(home->filePath("settings/maker"));
        QCOMPARE(folder.entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden).size(),
                 4);
        QVERIFY(folder.exists("..%2Fa b%2F%C3%BC/SingleInstance/MasterPort"));
        qputenv("XDG_CONFIG_HOME", "settings"); // relative ones do not count
        QVERIFY(applicationFolder().startsWith(home->filePath(".config/maker/")));
    }

    void showsNoPartOfAValue()
    {
        const QStringList values = {QString(10, '1'), QString(5000, '2')};
        setValue(values.first());
        const auto writer = std::async(std::launch::async, [&values] {
            for (int i = 0; i < 2000; ++i)
                setValue(values[i % 2]);
        });
        while (writer.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
            QVERIFY(values.contains(value()));
        const QDir folder(applicationFolder() + "/SingleInstance");
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden), QStringList("MasterPort"));
    }

    void dropsLinesThatNobodyReads()
    {
        const int usual = ::dup(STDERR_FILENO);
        std::array<int, 2> ends = {};
        QCOMPARE(::pipe2(ends.data(), O_CLOEXEC), 0);
        ::dup2(ends[1], STDERR_FILENO);
        const auto write = [](char letter) {
            writeToStandardError(HostKit::LogLevel::Info, QString(9000, letter));
        };
        for (int i = 0; i < 100; ++i)
            write('x'); // would block here
        const auto drain = [&ends] {
            std::array<char, 1 << 18> text = {};
            return QByteArray(text.data(), int(::read(ends[0], text.data(), text.size())));
        };
        QByteArray read = drain();
        const auto kept = read.count('\n');
        write('y');
        read += drain();
        ::dup2(usual, STDERR_FILENO);
        for (const int file : {usual, ends[0], ends[1]})
            ::close(file);
        const QByteArray gap =
            " info: (" + QByteArray::number(100 - kept) + " lines before this were dropped) y";
        QVERIFY(kept > 0 && read.contains(gap));
        QCOMPARE(read.count('\n'), kept + 2); // behind what is left of the first that was dropped
    }

    void locksOutOthers()
    {
        const auto take = [](const char* name, int milliseconds) {
            return FileLock::take(applicationFolder() + name, FileLock::Kind::Exclusive,
                                  std::chrono::milliseconds(milliseconds));
        };
        FileLock lock = take("/lock", 0);
        QVERIFY(lock.isTaken());
        const int threads = threadsThatTakeSignals();
        QVERIFY(!take("/lock", 20).isTaken()); // and leaves a thread that waits
        QCOMPARE(threadsThatTakeSignals(), threads);
        const pid_t child = ::fork(); // has the same open file
        if (child == 0)
            ::_exit(::pause());
        lock = FileLock();
        QVERIFY(take("/lock", 5000).isTaken());
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        // What can only be read, as a folder, serves as well.
        QVERIFY(QDir(applicationFolder()).mkpath("folder"));
        QVERIFY(take("/folder", 0).isTaken());
    }

    void putsAsideWhatIsNoFileOfLists_data()
    {
        QTest::addColumn<QString>("change"); // to the file, by a shell
        QTest::addColumn<QString>("warning");

        const auto row = [](const char* name, const char* change, const char* warning) {
            QTest::newRow(name) << QString(change) << QString(warning);
        };
        row("sound", "true", "");
        row("damaged", "printf x | dd of=$0 bs=1 seek=50 conv=notrunc", "is damaged");
        row("cut off", "truncate -s -1 $0", "is damaged");
        row("empty", "truncate -s 0 $0", "is damaged");
        row("later", "printf '\\2' | dd of=$0 bs=1 seek=7 conv=notrunc", "is of another version");
        row("too large", "truncate -s 100M $0", "is too large");
        row("writable by others", "chmod o+w $0", "is open to others");
        row("a link", "mv $0 $0.1 && ln -s $0.1 $0", "cannot be opened: .*");
        row("a pipe", "rm $0 && mkfifo $0", "is no regular file");
        row("a folder", "rm $0 && mkdir $0", "is no regular file");
        if (::geteuid() == 0)
            row("of another user", "chown nobody $0", "is open to others");
    }

    void putsAsideWhatIsNoFileOfLists()
    {
        QFETCH(QString, change);
        QFETCH(QString, warning);
        const QString file = home->filePath("waiting.lists");
        const QList<QStringList> lists = {{"A", QString()}, {}, {QString(100000, 'x')}};
        QVERIFY(addWaitingLists(file, lists.mid(0, 1)) && addWaitingLists(file, lists.mid(1)));
        output("sh", {"-c", change, file});
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression("HostKit: .* is not used: it " + warning));
        QCOMPARE(takeWaitingLists(file), warning.isEmpty() ? lists : QList<QStringList>());
        QVERIFY(!hasWaitingLists(file));
    }

    void passesActivationTokensOn_data()
    {
        QTest::addColumn<QByteArray>("value"); // in the launch's environment
        QTest::addColumn<QByteArray>("setting"); // or @ for now, left by a launch before
        QTest::addColumn<QByteArray>("token"); // that the master has then
        QTest::addColumn<QString>("platform"); // of the master
        QTest::addColumn<QByteArray>("variable");

        const auto row = [](const char* name, const QByteArray& value, const char* setting,
                            const QByteArray& token, const char* platform = "wayland-egl",
                            const char* variable = "XDG_ACTIVATION_TOKEN") {
            QTest::newRow(name) << value << QByteArray(setting) << token << QString(platform)
                                << QByteArray(variable);
        };
        const QByteArray longest(1024, 'x');
        row("a token", "t-1", "", "t-1");
        row("none", "", "", "old");
        row("the longest", longest, "", longest);
        row("one too long", longest + 'x', "", "old");
        row("with a blank", "t 1", "", "old");
        row("with a line break", "t\n1", "", "old");
        row("not ASCII", "\xC3\xA4", "", "old");
        row("of a minute ago", "", "@-50 t", "t");
        row("of two minutes ago", "", "@-120 t", "old");
        row("from the future", "", "@+120 t", "old");
        row("damaged", "", "@t", "old");
        row("without a time", "", " t", "old");
        row("a start-up id", "i_TIME1", "", "i_TIME1", "wayland", "DESKTOP_STARTUP_ID");
        row("not on Wayland", "t", "", "old", "xcb");
    }

    void passesActivationTokensOn()
    {
        QFETCH(QByteArray, value);
        QFETCH(QByteArray, setting);
        QFETCH(QByteArray, token);
        QFETCH(QString, platform);
        QFETCH(QByteArray, variable);
        const auto at = [](int seconds) {
            return QByteArray::number(QDateTime::currentSecsSinceEpoch() + seconds);
        };
        qApp->setProperty("platformName", platform);
        qunsetenv("DESKTOP_STARTUP_ID");
        qputenv("XDG_ACTIVATION_TOKEN", "old"); // the master's own
        setValue(at(0) + " left", "ActivationToken"); // by a launch that crashed
        ReceivedActivation received;
        received.noteWhatIsThere();
        qunsetenv("XDG_ACTIVATION_TOKEN");
        qputenv(variable, value);
        setting.replace("@-50", at(-50)).replace("@-120", at(-120)).replace("@+120", at(120));
        if (!setting.isEmpty())
            setValue(setting.replace('@', at(0)), "ActivationToken");
        leaveActivationToken(ownActivationToken());
        qputenv("XDG_ACTIVATION_TOKEN", "old");
        received.takeOver();
        QCOMPARE(qgetenv("XDG_ACTIVATION_TOKEN"), token);
    }

    void flushesWhatWasHandedOver()
    {
        QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
        const auto stop = qScopeGuard([] { stopSingleInstance(); });
        auto* const controller = SingleInstance::findController();
        const quint16 port = SingleInstance::readMasterPort();
        QVERIFY(handOver({"early"}, port, QDeadlineTimer(5000)));
        QTRY_COMPARE(controller->peekMessages().size(), 1);
        const auto inbox = std::make_shared<Inbox>(QList<QStringList>{{"older"}});
        Inbox::fillFrom(*controller, inbox, [] {});
        QCOMPARE(inbox->takeAll(), (QList<QStringList>{{"older"}, {"early"}}));
        const QStringList list(QString(30000, 'x')); // takes more than one turn
        for (int i = 0; i < 50; ++i) {
            std::array<QTcpSocket, 10> sockets;
            for (QTcpSocket& socket : sockets) {
                socket.connectToHost(QHostAddress::LocalHostIPv6, port);
                socket.waitForConnected();
                socket.write(SingleInstance::prefixed(SingleInstance::packArguments(list)));
                socket.waitForBytesWritten();
            }
            QVERIFY(inbox->flush(port));
            QCOMPARE(inbox->takeAll().size(), int(sockets.size()));
        }
    }

    void startsAProgramThatInheritsNothing()
    {
        const Session session;
        const QString command = "cd \"$0\"; ls -l /proc/self/fd >files; "
                                "grep SigBlk /proc/self/status >signals && mv signals done";
        QVERIFY(startSuccessor({"sh", "-c", command, home->path()}));
        QTRY_COMPARE(contentOf(home->filePath("done")), "SigBlk:\t0000000000000000\n");
        const QByteArray inherited = contentOf(home->filePath("files"));
        QVERIFY2(!inherited.contains("lock") && !inherited.contains("socket"), inherited);
        QCOMPARE(output("find", {home->filePath("settings"), "-perm", "/077"}), QByteArray());
    }

    void refusesASessionThatCannotBe()
    {
        const Session session;
        QCOMPARE(session.property("state").value<SingleInstanceState>(), SingleInstanceStateMaster);
        const QByteArray warning = "HostKit: cannot open a session, ";
        QTest::ignoreMessage(QtWarningMsg, warning + "there is one already");
        QCOMPARE(InstanceSession().state(), SingleInstanceStateFailed);
        QTest::ignoreMessage(QtWarningMsg, warning + "this is not the application's thread");
        auto other = std::async(std::launch::async, [] { return InstanceSession().state(); });
        QCOMPARE(other.get(), SingleInstanceStateFailed);
    }

    /* The sample of the page on the protocol. */
    void anyProgramHandsOver()
    {
        qApp->setProperty("platformName", "wayland");
        setValue(QString("%1 left").arg(QDateTime::currentSecsSinceEpoch()), "ActivationToken");
        qputenv("XDG_ACTIVATION_TOKEN", "old");
        const QString sender =
            QString::fromUtf8(contentOf(PROTOCOL)).section("```python", 1).section("```", 0, 0);
        Session session;
        QSignalSpy received(&session, &InstanceSession::argumentsReceived);
        for (const QStringList& list :
             {QStringList{"while blocked"}, QStringList{"a.txt", "😀"}, QStringList()}) {
            session.blockSignals(list.contains("while blocked"));
            const QStringList script = {"-c", sender, applicationFolder()};
            QCOMPARE(output("python3", script + (list.isEmpty() ? QStringList(" ") : list)), "");
            if (session.signalsBlocked())
                QTest::qWait(50); // for what must not come
            else
                QTRY_VERIFY(!received.isEmpty() && received.last().first() == list);
        }
        QCOMPARE(received.takeFirst().first(), QStringList("while blocked"));
        QCOMPARE(qgetenv("XDG_ACTIVATION_TOKEN"), "old"); // no launch has left one since
    }

private:
    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(RoomsTest)
#include "tst_rooms.moc"
