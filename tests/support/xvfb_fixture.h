// A private X server for tests: starts Xvfb on a display number it picks
// itself (-displayfd) and stops it by its process id, never by name, so
// parallel test runs and a developer's own X server are left alone.
// Tests that need X skip when `available()` is false (no Xvfb installed, or
// it failed to start).
#pragma once

#include <sys/types.h>

#include <string>

namespace ncbtest {

class XvfbServer {
  public:
    // `screen` is Xvfb's WIDTHxHEIGHTxDEPTH for screen 0.
    explicit XvfbServer(const std::string& screen = "1280x1024x24");
    ~XvfbServer();
    XvfbServer(const XvfbServer&) = delete;
    XvfbServer& operator=(const XvfbServer&) = delete;

    bool available() const { return !m_display.empty(); }
    const std::string& display() const { return m_display; }  // ":N"
    const std::string& reason() const { return m_reason; }    // why it is not available

  private:
    pid_t m_pid = -1;
    std::string m_display;
    std::string m_reason;
};

}  // namespace ncbtest
