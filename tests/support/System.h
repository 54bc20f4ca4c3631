#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <set>
#include <vector>

#ifdef _WIN32
#include <winsock2.h>
#else
#include <sys/socket.h>
#endif

/*
 * What the tests do to the system below Qt, and what they ask of it. On Windows that is next to
 * nothing: its functions are imported by Qt's own libraries, where nothing takes their place, and
 * there is no limit of open files.
 */
#ifdef _WIN32
constexpr bool isLinux = false;
#else
constexpr bool isLinux = true;
#endif

extern std::set<int> refusedFamilies; // by bind(), as on a machine that lacks them

/* Has accept() fail, or no longer. */
void failAccepting(bool fails);

/* Keeps the master from accepting for as long as it lives. */
class HeldAccepting {
public:
    HeldAccepting();
    ~HeldAccepting();
    HeldAccepting(const HeldAccepting&) = delete;
    HeldAccepting& operator=(const HeldAccepting&) = delete;
};

/* Returns how many files, or on Windows handles, are open. */
int openFiles();

/* Sets the soft limit of open files. */
void limitFiles(int count);

/* Opens \a count descriptors, with numbers from \a first on. */
std::vector<int> openDescriptors(int first, int count);

/* Runs a function in a child process with the same memory. Returns its exit code: 2 if it returns. */
int exitCodeOfChild(const std::function<void()>& function);

/* Returns how many bytes are allocated. */
size_t usedMemory();

/* Returns for how long this process has used a processor. */
std::chrono::milliseconds processorTime();
