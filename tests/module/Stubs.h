#pragma once

#include "http_interface/http_interface.h"

namespace test
{

using namespace http_interface;

/// Implementations of the exported classes as a host could write them; every
/// operation answers nothing.
class StubEngine : public IHttpInterface
{
public:
    int Init(std::shared_ptr<IHttpInterfaceNotic>, void*) override { return 0; }
    int Start(bool) override { return 0; }
    int Stop(bool) override { return 0; }
    int AddHttpReq(std::shared_ptr<IHttpHandleInterface>, bool, HttpReqCallback, void*) override
    {
        return 0;
    }
    int DelHttpReq(std::shared_ptr<IHttpHandleInterface>, bool, HttpReqCallback, void*) override
    {
        return 0;
    }
    int AddTimerReq(std::shared_ptr<ITimerHandleInterface>, bool, TimerReqCallback, void*) override
    {
        return 0;
    }
    int DelTimerReq(std::shared_ptr<ITimerHandleInterface>, bool, TimerReqCallback, void*) override
    {
        return 0;
    }
};

class StubHandle : public IHttpHandleInterface
{
public:
    int InitRequest(const char*, const char*, int, std::shared_ptr<IHttpHandleNotic>, int, int,
                    void*) override
    {
        return 0;
    }
    int Disconnect() override { return 0; }
    int SetPostFields(const char*) override { return 0; }
    int SendWsData(std::shared_ptr<std::vector<char>>, int, std::size_t*) override { return 0; }
    int EnableVerbose() override { return 0; }
    int SetDownloadFile(const char*) override { return 0; }
    int SetProgress(bool) override { return 0; }
    int SetCaCert(const char*) override { return 0; }
    int SetHeaders(const std::list<std::string>*) override { return 0; }
    int SetUploadSize(std::int64_t) override { return 0; }
    void* GetUserData() override { return nullptr; }
    const std::string& GetUrl() override { return m_Text; }
    const std::string& GetTag() override { return m_Text; }
    const std::string& GetResponse() override { return m_Text; }
    long GetResponseCode() override { return 0; }

    std::string m_Text;
};

class StubTimer : public ITimerHandleInterface
{
public:
    int StopTimer(TimerReqCallback, void*) override { return 0; }
    int AgainTimer(TimerReqCallback, void*) override { return 0; }
};

} // namespace test
