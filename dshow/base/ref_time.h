// A DirectShow reference time (100-ns units) with the conversions filters use for stream times.
#pragma once

#include "dshow/base/dshow_headers.h"

constexpr LONGLONG MILLISECONDS = 1000;
// ks.h defines NANOSECONDS as a macro (of another value), so units are spelled out here.
constexpr LONGLONG UNITS = 10000000; // reference-time units per second
// The largest reference time: "no stop time".
constexpr LONGLONG MAX_TIME = 0x7FFFFFFFFFFFFFFF;

class CRefTime {
public:
    REFERENCE_TIME m_time = 0;

    CRefTime() = default;
    // From milliseconds, as the documented constructor taking a LONG does.
    explicit CRefTime(LONG msecs) : m_time(static_cast<REFERENCE_TIME>(msecs) * (UNITS / MILLISECONDS)) {}
    CRefTime(REFERENCE_TIME rt) : m_time(rt) {}

    operator REFERENCE_TIME() const { return m_time; }

    CRefTime& operator=(REFERENCE_TIME rt) {
        m_time = rt;
        return *this;
    }
    CRefTime& operator+=(const CRefTime& rt) {
        m_time += rt.m_time;
        return *this;
    }
    CRefTime& operator-=(const CRefTime& rt) {
        m_time -= rt.m_time;
        return *this;
    }

    LONG Millisecs() const { return static_cast<LONG>(m_time / (UNITS / MILLISECONDS)); }
    LONGLONG GetUnits() const { return m_time; }
};
