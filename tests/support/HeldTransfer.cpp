#include "support/HeldTransfer.h"

#include "support/Notics.h"
#include "support/Servers.h"
#include "support/Transfers.h"

#include <gtest/gtest.h>

namespace test
{
namespace
{

/// Asks the server through a handle of its own.
void Get(const std::shared_ptr<IHttpInterface>& engine, const std::string& url)
{
    const auto notic = std::make_shared<HandleNotic>();
    const auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(handle->InitRequest(url.c_str(), "", 0, notic, 0, 20000, nullptr), 0);
    ASSERT_EQ(engine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ASSERT_TRUE(notic->m_Finished.Wait());
    EXPECT_EQ(notic->m_Result, 0);
    EXPECT_EQ(handle->GetResponseCode(), 200) << url << ": " << handle->GetResponse();
    HttpCompletion deleted;
    ASSERT_EQ(engine->DelHttpReq(handle, false, deleted.Function(), nullptr), 0);
    ASSERT_TRUE(deleted.Wait());
}

} // namespace

HeldTransfer::HeldTransfer(const std::string& key)
    : m_Hold(Server("HOSTILE_URL") + "/hold?key=" + key + UniqueKey()),
      m_Count(Server("HOSTILE_URL") + "/count" + m_Hold.substr(m_Hold.find('?')) + "&min="),
      m_Release(Server("HOSTILE_URL") + "/release" + m_Hold.substr(m_Hold.find('?')))
{
}

void HeldTransfer::WaitUntilHeld(const std::shared_ptr<IHttpInterface>& engine, int requests) const
{
    Get(engine, m_Count + std::to_string(requests));
}

void HeldTransfer::Release(const std::shared_ptr<IHttpInterface>& engine) const
{
    WaitUntilHeld(engine);
    Get(engine, m_Release);
}

} // namespace test
