/*
 * For ThreadSanitizer: what needs little of Qt, which is not instrumented. Threads take a lock from
 * each other, give up and leave threads behind, start tasks and ask for a master, all at once.
 */

#include "FileLock.h"
#include "MasterProbe.h"

#include <DetachedTask.h>

#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <array>
#include <atomic>
#include <future>

int main()
{
    using HostKit::FileLock;
    using std::chrono::milliseconds;
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("lock"));
    std::atomic<int> holders = 0;
    std::atomic<int> mistakes = 0;
    const auto work = [&] {
        for (int i = 0; i < 200; ++i) {
            const auto lock = FileLock::take(path, FileLock::Kind::Exclusive, milliseconds(i % 3));
            if (lock.isTaken()) {
                mistakes += holders++;
                SingleInstance::DetachedTask([] {}).waitFor(milliseconds(i % 2));
                --holders;
            }
            mistakes += int(HostKit::isReachable(1));
        }
    };
    {
        std::array<std::future<void>, 4> threads;
        for (auto& thread : threads)
            thread = std::async(std::launch::async, work);
    }
    return std::min(mistakes.load(), 1);
}
