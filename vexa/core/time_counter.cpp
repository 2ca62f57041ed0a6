#include "vexa/core/time_counter.h"

#include <cstdint>
#include <cstdio>

#include "vexa/core/platform.h"

// The counters are 32-bit quantities; unsigned long is wider on this
// platform, so every stored value is reduced modulo 2^32.
namespace {

unsigned long Low32(unsigned long v) {
    return static_cast<unsigned long>(static_cast<std::uint32_t>(v));
}

int AsSigned32(unsigned long v) {
    return static_cast<int>(static_cast<std::int32_t>(static_cast<std::uint32_t>(v)));
}

}  // namespace

unsigned long VEXA_Debug_TimeCounter::totol_time = 0;

VEXA_Debug_TimeCounter::VEXA_Debug_TimeCounter(unsigned long* out) : m_out(out), m_pre(0), m_now(0) {
    restore();
}

VEXA_Debug_TimeCounter::VEXA_Debug_TimeCounter() : m_out(nullptr), m_pre(0), m_now(0) {
    restore();
}

// Narrow output on purpose: a wide write would fix stdout's orientation to
// wide and break a host that prints narrow text afterwards. The text is
// ASCII, so the bytes written are the same.
VEXA_Debug_TimeCounter::~VEXA_Debug_TimeCounter() {
    const unsigned long d = getDelay();
    totol_time = Low32(totol_time + d);
    if (m_out) *m_out = d;
    std::printf("\n use time : %d  milliseconds\n", AsSigned32(d));
}

VEXA_Debug_TimeCounter& VEXA_Debug_TimeCounter::operator=(const VEXA_Debug_TimeCounter& other) {
    m_out = other.m_out;
    m_pre = other.m_pre;
    m_now = other.m_now;
    return *this;
}

void VEXA_Debug_TimeCounter::PrintTotalTime() {
    std::printf("\ncost total time:%10d milliseconds\n", AsSigned32(totol_time));
}

void VEXA_Debug_TimeCounter::PrintTotalTime2(unsigned long& total) {
    total = totol_time;
}

void VEXA_Debug_TimeCounter::SetPre() {
    m_pre = vexa_platform::TickCount();
}

void VEXA_Debug_TimeCounter::SetNow() {
    m_now = vexa_platform::TickCount();
}

unsigned long VEXA_Debug_TimeCounter::getDelay() {
    SetNow();
    return Low32(m_now - m_pre);
}

void VEXA_Debug_TimeCounter::restore() {
    SetPre();
    SetNow();
}
