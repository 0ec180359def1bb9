#include "serve/StatusResponder.h"

#include "helpers/ProcessTestSupport.h"
#include "tool/fixtures/ToolBusFixture.h"

#include <Telvane/RequestType.h>

#include <unistd.h>

namespace TelvaneTool
{
namespace
{

class StatusResponderTest : public ToolBusFixture
{
protected:
    void SetUp() override { ASSERT_EQ(m_server.Start(path()), 0); }
};

TEST_F(StatusResponderTest, GivesUpIfTheServerRefusesIt)
{
    // Another client may take the connection that the limit leaves for the responder.
    Telvane::EventServerLimits limits;
    limits.connections = 1;
    m_server.SetLimits(limits);
    ASSERT_EQ(m_other.Connect(path()), 0);
    ASSERT_EQ(
        m_other.Subscribe(
            "Some", [](void*, Telvane::TelvaneDataTypeBase*, int, void*) {}, Telvane::RequestType(), nullptr),
        0);
    const Telvane::Testing::StreamCapture errors(STDERR_FILENO);
    m_responder.start(path());
    EXPECT_NE(errors.text().find("status requests are disabled"), std::string::npos);
}

} // namespace
} // namespace TelvaneTool
