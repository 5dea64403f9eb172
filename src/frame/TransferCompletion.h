#pragma once

namespace http_interface
{

class CHttpFrame;

/// Reads every transfer that libcurl has finished, takes it out of the multi
/// handle and tells its notice. Loop thread, after each libcurl action and
/// outside of libcurl, so that notices may add and remove transfers.
void CheckMultiInfo(CHttpFrame* frame);

} // namespace http_interface
