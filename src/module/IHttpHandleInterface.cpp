#include "http_interface/IHttpHandleInterface.h"

#include "handle/CHttpHandle.h"

namespace http_interface
{

std::shared_ptr<IHttpHandleInterface> IHttpHandleInterface::Create()
{
    return std::make_shared<CHttpHandle>();
}

IHttpHandleInterface::IHttpHandleInterface() = default;

IHttpHandleInterface::IHttpHandleInterface(const IHttpHandleInterface&) = default;

IHttpHandleInterface& IHttpHandleInterface::operator=(const IHttpHandleInterface&) = default;

IHttpHandleInterface::~IHttpHandleInterface() = default;

} // namespace http_interface
