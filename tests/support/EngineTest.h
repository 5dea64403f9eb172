#pragma once

#include "http_interface/http_interface.h"
#include "support/LogRecorder.h"
#include "support/Notics.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace test
{

/// A test with an engine and a recorded log. The engine runs only after
/// StartEngine(); one that still runs at the end is stopped.
class EngineTest : public ::testing::Test
{
protected:
    void TearDown() override;

    /// Init and Start(true); both must succeed.
    void StartEngine();
    /// Stop from this thread; must succeed.
    void StopEngine();
    /// Runs a function on the loop thread, outside libcurl, and waits for it.
    void OnLoop(const std::function<void()>& function);

    /// An initialised handle with m_pNotic (made anew) as its notice.
    std::shared_ptr<IHttpHandleInterface> MakeHandle(const std::string& url, int method = 0,
                                                     int timeoutMs = 20000);
    /// Adds a handle from this thread and waits for its OnFinish.
    void Run(const std::shared_ptr<IHttpHandleInterface>& handle);
    /// Deletes a handle from this thread and waits for the completion.
    void Delete(const std::shared_ptr<IHttpHandleInterface>& handle);

    LogRecorder m_Log;
    std::shared_ptr<IHttpInterface> m_pEngine = IHttpInterface::Create();
    std::shared_ptr<EngineNotic> m_pEngineNotic = std::make_shared<EngineNotic>();
    std::shared_ptr<HandleNotic> m_pNotic;
    int m_UserData = 0; ///< its address is the user data of MakeHandle and Init
};

/// The method argument of InitRequest.
constexpr int kGet = 0;
constexpr int kPost = 1;
constexpr int kUpload = 2;
constexpr int kWebSocket = 3;

} // namespace test
