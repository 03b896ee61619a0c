// A small text report for demo steps: lines of findings plus checks that
// record the first thing that went wrong.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace ncodec {

class DemoReport {
  public:
    __attribute__((format(printf, 2, 3))) void Line(const char* format, ...) {
        char buffer[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
        m_text += buffer;
        m_text += '\n';
    }
    // Records `what` as a failure when the condition does not hold and
    // writes the outcome as a line; returns the condition.
    bool Check(bool condition, const char* what) {
        Line("  check %-48s %s", what, condition ? "ok" : "FAILED");
        return Expect(condition, what);
    }
    // The same, writing a line only on failure (for tables).
    bool Expect(bool condition, const char* what) {
        if (!condition && m_firstFailure.empty()) m_firstFailure = what;
        if (!condition) Line("  FAILED: %s", what);
        return condition;
    }
    bool ok() const { return m_firstFailure.empty(); }
    const std::string& text() const { return m_text; }
    const std::string& firstFailure() const { return m_firstFailure; }

  private:
    std::string m_text;
    std::string m_firstFailure;
};

}  // namespace ncodec
