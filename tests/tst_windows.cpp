#include <Core/ObjectsPool.h>
#include <SingleInstanceController.h>

#include <QtCore/QSettings>
#include <QtTest/QtTest>

#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include <windows.h>

/*
 * Real processes on Windows, of this same program. By its first argument it is an application, a
 * program without the library whose window is in front, or otherwise the test.
 */
namespace {

using SingleInstance::SingleInstanceController;

void say(const QString& line)
{
    std::puts(line.toUtf8().constData());
    std::fflush(stdout);
}

int runUntilInputEnds()
{
    std::thread([] {
        while (std::getchar() != EOF) { }
        QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    }).detach();
    return QCoreApplication::exec();
}

HWND openWindow()
{
    WNDCLASSW kind = {};
    kind.lpfnWndProc = DefWindowProcW;
    kind.lpszClassName = L"TestWindow";
    RegisterClassW(&kind);
    return CreateWindowExW(0, kind.lpszClassName, L"Test", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 20, 20,
                           300, 200, nullptr, nullptr, nullptr, nullptr);
}

int runApplication()
{
    // Hosts must hold a lock that the system releases when its holder dies.
    const HANDLE lock = CreateMutexW(nullptr, FALSE, L"Local\\SingleInstanceTest");
    WaitForSingleObject(lock, INFINITE);
    const SingleInstanceState state = startSingleInstance();
    ReleaseMutex(lock);
    if (state == SingleInstanceStateMaster)
        openWindow();
    say("state " + QString::number(state));
    const auto entry = Core::ObjectsPool::getInstance().find(
        SingleInstanceController::staticMetaObject.className(), false);
    auto* const controller = qobject_cast<SingleInstanceController*>(entry.second);
    const auto showAll = [controller] {
        for (const QStringList& list : controller->takeMessages())
            say("list " + list.mid(1).join('|'));
    };
    if (controller) {
        QObject::connect(controller, &SingleInstanceController::messageReceived, qApp, showAll);
        showAll();
    }
    const int result = controller ? runUntilInputEnds() : 0;
    stopSingleInstance();
    return result;
}

/* A process of this program. It is killed with the object. */
class Process : public QProcess {
public:
    explicit Process(const QStringList& arguments = {}, const QString& role = "application")
    {
        setProcessChannelMode(ForwardedErrorChannel);
        start(QCoreApplication::applicationFilePath(), QStringList(role) + arguments);
    }
    ~Process() override
    {
        kill();
        waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(Process)

    /* Returns the next line, if it comes in time. */
    QString line()
    {
        while (!canReadLine() && waitForReadyRead()) { }
        return QString::fromUtf8(readLine()).trimmed();
    }

    bool owns(HWND window) const
    {
        DWORD owner = 0;
        GetWindowThreadProcessId(window, &owner);
        return owner == processId();
    }

    bool isInFront() const
    {
        return QTest::qWaitFor([this] { return owns(GetForegroundWindow()); });
    }

    HWND window() const
    {
        HWND window = nullptr;
        do
            window = FindWindowExW(nullptr, window, L"TestWindow", nullptr);
        while (window && !owns(window));
        return window;
    }
};

} // namespace

class WindowsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { settings.clear(); }
    void cleanupTestCase() { settings.clear(); }

    /* One of many is the master, although one that was killed has left its port. */
    void handsOver()
    {
        Process killed;
        QCOMPARE(killed.line(), "state 1");
        killed.kill();
        QVERIFY(killed.waitForFinished());
        QVERIFY(settings.value("SingleInstance/MasterPort").toUInt() != 0);
        const QStringList list = {"C:\\a b.txt", QString::fromUtf8("Grüße 文"), "", "\"x\" \\"};
        std::vector<std::unique_ptr<Process>> launches;
        for (int i = 0; i < 32; ++i)
            launches.push_back(std::make_unique<Process>(list + QStringList(QString::number(i))));
        Process* master = nullptr;
        QSet<QString> missing;
        for (const auto& launch : launches) {
            if (launch->line() == "state 2")
                missing.insert("list " + launch->arguments().mid(1).join('|'));
            else
                master = launch.get();
        }
        QCOMPARE(missing.size(), 31);
        QCOMPARE(settings.value("SingleInstance/MasterPid").toUInt(), uint(master->processId()));
        while (!missing.isEmpty())
            QVERIFY(missing.remove(master->line()));
        master->closeWriteChannel();
        QVERIFY(master->waitForFinished());
        QCOMPARE(settings.value("SingleInstance/MasterPort").toUInt(), 0u);
    }

    /* The system's own functions say what is in front. */
    void bringsTheWindowForward()
    {
        Process master;
        QCOMPARE(master.line(), "state 1");
        const HWND window = master.window();
        const Process other({}, "other");
        QVERIFY(other.isInFront());
        QCOMPARE(Process().line(), "state 2");
        QVERIFY(master.isInFront());

        ShowWindow(window, SW_MINIMIZE);
        SetForegroundWindow(other.window());
        QVERIFY(other.isInFront());
        QVERIFY(IsIconic(window));
        QCOMPARE(Process().line(), "state 2");
        QVERIFY(master.isInFront());
        QVERIFY(IsIconic(window)); // the application must restore it
    }

private:
    QSettings settings{qEnvironmentVariable("TEST_REGISTRY"), QSettings::NativeFormat};
};

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QString role = QCoreApplication::arguments().value(1);
    if (role == "application")
        return runApplication();
    if (role == "other") {
        SetForegroundWindow(openWindow());
        return runUntilInputEnds();
    }
    qputenv("TEST_REGISTRY", "HKEY_CURRENT_USER\\Software\\SingleInstanceTest");
    WindowsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_windows.moc"
