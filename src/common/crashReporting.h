// The last words of a crash: a post-mortem file beside the executable, and one message about it.
//
// A program that wants them has one line at namespace scope in the file of its main:
//
//     const CrashReporting crashReporting(reportToEventLog);
//
// The object stands in the program, not in a library, because the linker takes out of a static
// library only what somebody refers to.
//
// What reaches the filter: the signals of a fault, exceptions that nobody catches, and calls of
// pure virtual functions. An assertion and any other abort() don't.
#pragma once

// Takes the last message of a crash. Runs in a signal handler, so it may use only what is safe
// there: no memory, no locks.
using CrashReporter = void (*)(const char* text);

// Installs the crash filter. Called once, before main. The filter writes the post-mortem to the
// path of the executable, the part from the last "." of the file name on replaced by ".dmp" (or
// ".dmp" appended), or to "harnwell.dmp" in the current directory if that path can't be had or
// is longer than 260 characters. Then it gives the reporter the message about it, at most 520
// characters. Without a reporter (null) the message goes to standard error behind
// "Dump generated: ".
void installCrashHandler(CrashReporter reporter);

// Installs the crash filter while the program's static objects are built.
class CrashReporting {
public:
    explicit CrashReporting(CrashReporter reporter) { installCrashHandler(reporter); }
    CrashReporting(const CrashReporting&) = delete;
    CrashReporting& operator=(const CrashReporting&) = delete;
};
