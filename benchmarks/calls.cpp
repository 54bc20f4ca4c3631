/*
 * Calls within a process, each beside its floor: benchmark "name/ours" against "name/floor".
 */

#include "LogBridge.h"
#include "MessageFormat.h"
#include "Registry.h"
#include "SingleInstanceController.h"

#include <benchmark/benchmark.h>

#include <HostKit/Log.h>

#include <QtCore/QCoreApplication>

#include <atomic>
#include <cstdlib>
#include <new>

using namespace SingleInstance;

namespace {

std::atomic<long> allocations = 0;

/* Reaches the inbox itself, which 100,000 connections would take minutes to fill. */
using Inbox = QList<QStringList> SingleInstanceController::*;
Inbox inboxField();
template <Inbox field> struct Reach {
    friend Inbox inboxField() { return field; }
};
template struct Reach<&SingleInstanceController::messages>;

} // namespace

void* operator new(size_t size)
{
    ++allocations;
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace {

void filteredLine(benchmark::State& state)
{
    HostKit::setLogLevel(HostKit::LogLevel::Off);
    const QStringList list = {QStringLiteral("a"), QStringLiteral("b")};
    const long before = allocations;
    for (auto _ : state)
        logLine(torvane::LogLevel::Info,
                "message received: ", [&list] { return list.join(QLatin1Char(' ')); });
    state.counters["allocations"] = static_cast<double>(allocations - before);
}

void thresholdAlone(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(torvane::GetLoggerLevel());
}

SingleInstanceController& controllerWith(int lists)
{
    static SingleInstanceController* const controller = [] {
        startSingleInstance();
        return findController();
    }();
    auto& inbox = controller->*inboxField();
    inbox.clear();
    for (int i = 0; i < lists; ++i)
        inbox.append({QStringLiteral("a.txt")});
    return *controller;
}

/* Only what happens under the lock: lists are given up outside the measured time. */
void peek(benchmark::State& state, int lists)
{
    auto& controller = controllerWith(lists);
    for (auto _ : state)
        benchmark::DoNotOptimize(controller.peekMessages());
}

void take(benchmark::State& state, int lists)
{
    auto& controller = controllerWith(lists);
    auto& inbox = controller.*inboxField();
    for (auto _ : state) {
        auto taken = controller.takeMessages();
        inbox.swap(taken);
    }
}

QByteArray fullBody()
{
    QStringList strings;
    for (int i = 0; i < 16382; ++i)
        strings.append(QStringLiteral(""));
    return packArguments(strings);
}

void unpack(benchmark::State& state)
{
    const QByteArray body = fullBody();
    for (auto _ : state) {
        QStringList list;
        benchmark::DoNotOptimize(unpackArguments(body, list));
    }
}

void unpackByOperator(benchmark::State& state)
{
    const QByteArray body = fullBody();
    for (auto _ : state) {
        QStringList list;
        QDataStream stream(body);
        stream >> list;
        benchmark::DoNotOptimize(stream.status());
    }
}

} // namespace

BENCHMARK(filteredLine)->Name("filtered log line/ours");
BENCHMARK(thresholdAlone)->Name("filtered log line/floor");
BENCHMARK_CAPTURE(peek, many, 100000)->Name("peekMessages/ours");
BENCHMARK_CAPTURE(peek, few, 10)->Name("peekMessages/floor");
BENCHMARK_CAPTURE(take, many, 100000)->Name("takeMessages/ours");
BENCHMARK_CAPTURE(take, few, 10)->Name("takeMessages/floor");
BENCHMARK(unpack)->Name("unpack/ours");
BENCHMARK(unpackByOperator)->Name("unpack/floor");

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("bench"));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    stopSingleInstance();
    return 0;
}
