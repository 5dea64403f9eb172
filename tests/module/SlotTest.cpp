#include "base/base.h"
#include "frame/AsynOperReq.h"
#include "frame/IAsynOperInterface.h"
#include "module/Stubs.h"
#include "support/Notics.h"

#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <new>

namespace test
{
namespace
{

/// The place of a virtual operation in its class's virtual table, from 1. By
/// the rules of the C++ ABI that both our compilers follow, a pointer to such a
/// member holds 1 plus its offset in the table.
template <typename Member>
std::size_t SlotOf(Member member)
{
    std::size_t word = 0;
    std::memcpy(&word, &member, sizeof word);
    EXPECT_EQ(word % 2, 1U) << "not virtual";
    return (word - 1) / sizeof(void*) + 1;
}

/// Tells of its destruction.
template <typename Implementation>
class Told : public Implementation
{
public:
    explicit Told(bool& destroyed) : m_Destroyed(destroyed) {}
    ~Told() override { m_Destroyed = true; }

private:
    bool& m_Destroyed;
};

/// Whether the function in this place destroys the object.
template <typename Interface, typename Implementation>
bool IsDestructor(std::size_t slot)
{
    using Object = Told<Implementation>;
    alignas(Object) unsigned char storage[sizeof(Object)];
    bool destroyed = false;
    Interface* const object = new (storage) Object(destroyed);
    void** table = nullptr;
    std::memcpy(&table, static_cast<const void*>(object), sizeof table);
    reinterpret_cast<void (*)(Interface*)>(table[slot - 1])(object);
    return destroyed;
}

class StubTarget : public IAsynOperInterface
{
public:
    int DoAsynOper(std::shared_ptr<AsynOperReq>, std::shared_ptr<CHttpFrame>) override { return 0; }
    bool CancelAsynOper(std::shared_ptr<AsynOperReq>) override { return false; }
};

class StubLogger : public base::IBaseLogInterface
{
public:
    void WriteLog(const int*, const long*, const char*, ...) override {}
};

// Host and library know each other's operations by their places alone.

TEST(SlotTest, EngineOperationsKeepTheirPlaces)
{
    EXPECT_EQ(SlotOf(&IHttpInterface::Init), 1U);
    EXPECT_EQ(SlotOf(&IHttpInterface::Start), 2U);
    EXPECT_EQ(SlotOf(&IHttpInterface::Stop), 3U);
    EXPECT_EQ(SlotOf(&IHttpInterface::AddHttpReq), 4U);
    EXPECT_EQ(SlotOf(&IHttpInterface::DelHttpReq), 5U);
    EXPECT_EQ(SlotOf(&IHttpInterface::AddTimerReq), 6U);
    EXPECT_EQ(SlotOf(&IHttpInterface::DelTimerReq), 7U);
    EXPECT_TRUE((IsDestructor<IHttpInterface, StubEngine>(8)));
}

TEST(SlotTest, RequestOperationsKeepTheirPlaces)
{
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::InitRequest), 1U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::Disconnect), 2U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::SetPostFields), 3U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::SendWsData), 4U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::EnableVerbose), 5U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::SetDownloadFile), 6U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::SetProgress), 7U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::SetCaCert), 8U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::SetHeaders), 9U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::SetUploadSize), 10U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::GetUserData), 11U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::GetUrl), 12U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::GetTag), 13U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::GetResponse), 14U);
    EXPECT_EQ(SlotOf(&IHttpHandleInterface::GetResponseCode), 15U);
    EXPECT_TRUE((IsDestructor<IHttpHandleInterface, StubHandle>(16)));
}

TEST(SlotTest, TimerOperationsKeepTheirPlaces)
{
    EXPECT_EQ(SlotOf(&ITimerHandleInterface::StopTimer), 1U);
    EXPECT_EQ(SlotOf(&ITimerHandleInterface::AgainTimer), 2U);
    EXPECT_TRUE((IsDestructor<ITimerHandleInterface, StubTimer>(3)));
}

TEST(SlotTest, EngineNoticeKeepsItsPlaces)
{
    EXPECT_EQ(SlotOf(&IHttpInterfaceNotic::OnHttpFrameStop), 1U);
    EXPECT_TRUE((IsDestructor<IHttpInterfaceNotic, EngineNotic>(2)));
}

TEST(SlotTest, RequestNoticeKeepsItsPlaces)
{
    EXPECT_EQ(SlotOf(&IHttpHandleNotic::OnWsData), 1U);
    EXPECT_EQ(SlotOf(&IHttpHandleNotic::OnProgress), 2U);
    EXPECT_EQ(SlotOf(&IHttpHandleNotic::OnReadData), 3U);
    EXPECT_EQ(SlotOf(&IHttpHandleNotic::OnFinish), 4U);
    EXPECT_TRUE((IsDestructor<IHttpHandleNotic, HandleNotic>(5)));
}

TEST(SlotTest, TimerNoticeKeepsItsPlaces)
{
    EXPECT_EQ(SlotOf(&ITimerHandleNotic::OnTimer), 1U);
    EXPECT_EQ(SlotOf(&ITimerHandleNotic::OnClose), 2U);
    EXPECT_TRUE((IsDestructor<ITimerHandleNotic, TimerNotic>(3)));
}

TEST(SlotTest, OperationTargetKeepsItsPlaces)
{
    EXPECT_EQ(SlotOf(&IAsynOperInterface::DoAsynOper), 1U);
    EXPECT_EQ(SlotOf(&IAsynOperInterface::CancelAsynOper), 2U);
    EXPECT_TRUE((IsDestructor<IAsynOperInterface, StubTarget>(3)));
}

TEST(SlotTest, LoggerWritesInItsTenthPlace)
{
    EXPECT_EQ(SlotOf(&base::IBaseLogInterface::WriteLog), 10U);
    EXPECT_TRUE((IsDestructor<base::IBaseLogInterface, StubLogger>(11)));
}

} // namespace
} // namespace test
