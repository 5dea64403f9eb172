#include "support/EngineTest.h"
#include "wrap/Hooks.h"

namespace test
{
namespace
{

class EngineFaultTest : public EngineTest
{
};

TEST_F(EngineFaultTest, InitReportsAFailingLoop)
{
    const Replaced<int(uv_loop_t*)> fails(hooks::uv_loop_init(),
                                          [](uv_loop_t*) { return UV_EMFILE; });
    EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), -1);
    EXPECT_EQ(m_Log.Texts(kError),
              std::vector<std::string>{"[HTTP_INTERFACE]err[" + std::to_string(UV_EMFILE) + ":" +
                                       uv_strerror(UV_EMFILE) + "]uv_loop_init failed"});
}

} // namespace
} // namespace test
