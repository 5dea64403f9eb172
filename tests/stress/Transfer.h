#pragma once

#include "stress/Plans.h"
#include "stress/Request.h"

#include <memory>
#include <string>

namespace stress
{

/// An HTTP request whose body is looked at, byte by byte.
class Transfer : public Request
{
public:
    static std::shared_ptr<Transfer> Make(Session& session, std::uint64_t id, Script script,
                                          const TransferPlan& plan);

    Transfer(Session& session, std::uint64_t id, Script script, const TransferPlan& plan);
    ~Transfer() override;

    // Entry:
    bool Settle() override;
    bool IsQuiet() const override { return !IsInEngine() && HasNothingQueued(); }
    std::string Describe() const override;

    // Request:
    bool MayBeAddedAgain() const override;

protected:
    void Began() override;
    void Ended(int result) override;
    void Deleted() override;
    std::size_t Read(char* buffer, std::size_t room) override;

private:
    bool Configure();
    bool SetBody();
    std::string Url() const;
    std::string Authority() const;
    void CheckResponse(int result, const std::string& response);
    void CheckFile();

    const TransferPlan& m_Plan;
    std::string m_Sent;          ///< what goes
    std::string m_Expected;      ///< what has to come, unless the plan has it
    std::size_t m_Before = 0;    ///< of the response, from earlier turns; loop thread
    std::size_t m_ReadBytes = 0; ///< of m_Sent; loop thread
    std::string m_File;          ///< where the body goes; empty for the response
    bool m_bFileWhole = false;   ///< m_File has to hold the whole body; loop thread
};

} // namespace stress
