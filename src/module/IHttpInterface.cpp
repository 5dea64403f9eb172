#include "http_interface/IHttpInterface.h"

#include "frame/CHttpFrame.h"

namespace http_interface
{

std::shared_ptr<IHttpInterface> IHttpInterface::Create()
{
    return std::make_shared<CHttpFrame>();
}

IHttpInterface::IHttpInterface() = default;

IHttpInterface::IHttpInterface(const IHttpInterface&) = default;

IHttpInterface& IHttpInterface::operator=(const IHttpInterface&) = default;

IHttpInterface::~IHttpInterface() = default;

} // namespace http_interface
