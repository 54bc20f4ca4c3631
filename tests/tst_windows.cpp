#include <Core/ObjectsPool.h>
#include <SingleInstanceController.h>

#include <QtCore/QSettings>
#include <QtTest/QtTest>

#include <cstdio>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <windows.h>

/*
 * Real processes on Windows, of this same program: by its first argument it is an application, one
 * without the library whose window is in front, or otherwise the test.
 */
namespace {

using SingleInstance::SingleInstanceController;

void say(const QString& line)
{
    std::puts(line.toUtf8().constData());
    std::fflush(stdout);
}

/* Runs until standard input ends. */
int runToTheEndOfInput()
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
    kind.hInstance = GetModuleHandleW(nullptr);
    kind.lpszClassName = L"TestWindow";
    RegisterClassW(&kind);
    return CreateWindowExW(0, kind.lpszClassName, L"Test", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 20, 20,
                           300, 200, nullptr, nullptr, kind.hInstance, nullptr);
}

/* Starts as hosts have to: under a lock that the system frees when its holder dies. */
SingleInstanceState startUnderLock()
{
    const std::unique_ptr<void, BOOL(WINAPI*)(HANDLE)> lock(
        CreateMutexW(nullptr, FALSE, L"Local\\SingleInstanceTest"), CloseHandle);
    WaitForSingleObject(lock.get(), INFINITE);
    const SingleInstanceState state = startSingleInstance();
    ReleaseMutex(lock.get());
    return state;
}

int runApplication()
{
    const SingleInstanceState state = startUnderLock();
    const auto entry = Core::ObjectsPool::getInstance().find(
        SingleInstanceController::staticMetaObject.className(), false);
    auto* const controller = qobject_cast<SingleInstanceController*>(entry.second);
    if (controller) {
        const auto showAll = [controller] {
            for (const QStringList& list : controller->takeMessages())
                say("list " + list.mid(1).join('|'));
        };
        QObject::connect(controller, &SingleInstanceController::messageReceived, qApp, showAll);
        showAll();
        openWindow();
    }
    say("state " + QString::number(state));
    const int result = controller ? runToTheEndOfInput() : 0;
    stopSingleInstance();
    return result;
}

/* A process of this program. It is killed with the object. */
class Process : public QProcess {
public:
    explicit Process(const QStringList& arguments)
    {
        setProcessChannelMode(ForwardedErrorChannel);
        start(QCoreApplication::applicationFilePath(), arguments);
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
};

using Launch = std::unique_ptr<Process>;

Launch launch(const QStringList& arguments = {})
{
    return std::make_unique<Process>(QStringList("application") + arguments);
}

DWORD ownerOf(HWND window)
{
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    return owner;
}

bool isInFront(const Process& process)
{
    return QTest::qWaitFor([&] { return ownerOf(GetForegroundWindow()) == process.processId(); });
}

HWND windowOf(const Process& process)
{
    HWND window = nullptr;
    do
        window = FindWindowExW(nullptr, window, L"TestWindow", nullptr);
    while (window && ownerOf(window) != process.processId());
    return window;
}

} // namespace

class WindowsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { settings.clear(); }
    void cleanupTestCase() { settings.clear(); }

    void handsOver()
    {
        const QStringList list = {"C:\\a b.txt", QString::fromUtf8("Grüße 文"), "", "\"x\" \\"};
        const Launch master = launch();
        QCOMPARE(master->line(), "state 1");
        QCOMPARE(settings.value("SingleInstance/MasterPid").toUInt(), uint(master->processId()));
        QCOMPARE(launch(list)->line(), "state 2");
        QCOMPARE(master->line(), "list " + list.join('|'));
        master->closeWriteChannel();
        QVERIFY(master->waitForFinished());
        QCOMPARE(settings.value("SingleInstance/MasterPort").toUInt(), 0u);
    }

    void replacesAMasterThatWasKilled()
    {
        const Launch killed = launch();
        QCOMPARE(killed->line(), "state 1");
        killed->kill();
        QVERIFY(killed->waitForFinished());
        QVERIFY(settings.value("SingleInstance/MasterPort").toUInt() != 0);
        const Launch master = launch();
        QCOMPARE(master->line(), "state 1");
        QCOMPARE(launch({"x"})->line(), "state 2");
        QCOMPARE(master->line(), "list x");
    }

    void hasOneMasterOfMany()
    {
        std::vector<Launch> launches;
        QSet<QString> missing;
        for (int i = 0; i < 32; ++i) {
            launches.push_back(launch({QString::number(i)}));
            missing.insert("list " + QString::number(i));
        }
        Process* master = nullptr;
        for (int i = 0; i < 32; ++i) {
            const QString state = launches[size_t(i)]->line();
            if (state != "state 2") {
                QCOMPARE(state, "state 1");
                QVERIFY(!master);
                master = launches[size_t(i)].get();
                missing.remove("list " + QString::number(i));
            }
        }
        QVERIFY(master);
        for (int i = 1; i < 32; ++i)
            missing.remove(master->line());
        QCOMPARE(missing, QSet<QString>());
    }

    /* The system's own functions say what is in front. */
    void bringsTheWindowForward()
    {
        const Launch master = launch();
        QCOMPARE(master->line(), "state 1");
        const HWND window = windowOf(*master);
        const Process other({"other"});
        QVERIFY(isInFront(other));
        QCOMPARE(launch()->line(), "state 2");
        QVERIFY(isInFront(*master));

        ShowWindow(window, SW_MINIMIZE);
        SetForegroundWindow(windowOf(other));
        QVERIFY(isInFront(other));
        QVERIFY(IsIconic(window));
        QCOMPARE(launch()->line(), "state 2");
        QVERIFY(isInFront(*master));
        QVERIFY(IsIconic(window)); // to restore it is for the application
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
        return runToTheEndOfInput();
    }
    qputenv("TEST_REGISTRY", "HKEY_CURRENT_USER\\Software\\SingleInstanceTest");
    WindowsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_windows.moc"
