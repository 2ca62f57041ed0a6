#ifndef VEXA_CORE_TIME_COUNTER_H
#define VEXA_CORE_TIME_COUNTER_H

#include "vexa/core/export.h"

// Scope timer for hosts: prints the elapsed milliseconds when destroyed and
// adds them to a process-wide total. Arithmetic is unsigned 32-bit.
class VEXA_API VEXA_Debug_TimeCounter {
public:
    explicit VEXA_Debug_TimeCounter(unsigned long* out);
    VEXA_Debug_TimeCounter();
    ~VEXA_Debug_TimeCounter();

    VEXA_Debug_TimeCounter& operator=(const VEXA_Debug_TimeCounter& other);

    static void PrintTotalTime();
    static void PrintTotalTime2(unsigned long& total);

private:
    void SetPre();
    void SetNow();
    unsigned long getDelay();
    void restore();

    unsigned long* m_out;
    unsigned long m_pre;
    unsigned long m_now;

    static unsigned long totol_time;
};

#endif
