/*
 * For ThreadSanitizer: what needs little of Qt, which is not instrumented. Threads take a lock from
 * each other, give up and leave threads behind, start tasks and ask for a master, all at once.
 */

#include "FileLock.h"
#include "MasterProbe.h"

#include <DetachedTask.h>

#include <QtCore/QTemporaryDir>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

int main()
{
    using HostKit::FileLock;
    using std::chrono::milliseconds;
    const QTemporaryDir folder;
    std::atomic<int> holders = 0;
    std::atomic<int> mistakes = 0;
    const auto work = [&](const QString& path) {
        for (int i = 0; i < 200; ++i) {
            const FileLock lock =
                FileLock::take(path, FileLock::Kind::Exclusive, milliseconds(i % 3));
            if (lock.isTaken()) {
                mistakes += holders++;
                SingleInstance::DetachedTask([] {}).waitFor(milliseconds(i % 2));
                --holders;
            }
            mistakes += int(HostKit::isReachable(1));
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(work, folder.filePath(QStringLiteral("lock")));
    for (std::thread& thread : threads)
        thread.join();
    std::printf("%d mistakes\n", mistakes.load());
    return mistakes > 0 ? 1 : 0;
}
