#pragma once

#include <string>
#include <sys/types.h>

/// An Xvfb server of this process's own, for drawing with GL where there is no display.
///
/// Xvfb picks a free display number itself (-displayfd), so that any number of
/// exports can start side by side without racing for one. The server goes with
/// this object, and with the process if it dies.
class PrivateXServer
{
public:
    PrivateXServer() = default;
    ~PrivateXServer();
    PrivateXServer(const PrivateXServer&) = delete;
    PrivateXServer& operator=(const PrivateXServer&) = delete;

    /// Starts the server and points DISPLAY at it; false with the reason when it cannot.
    bool start(std::string& error);

private:
    pid_t m_server = -1;
    std::string m_runtimeFolder; ///< made here when the session had none
};
