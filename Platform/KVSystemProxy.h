#pragma once

#include <QUrl>

// The proxy the system's settings name for a request. On Linux these are the variables that
// command-line tools read, each in lower or upper case (the lower-case one wins): https_proxy for
// HTTPS and http_proxy for HTTP, all_proxy for either when its own is not set, and no_proxy, a
// comma-separated list of hosts, domains (".example.com" or "example.com" also covers its
// subdomains), address ranges ("10.0.0.0/8") or "*", that are reached directly. Where none of the
// proxy variables is set, the desktop's proxy settings apply as Qt reads them.
// Thread: any.
namespace KVSystemProxy {

// The proxy's address for a request to the URL, with the user name and password it was given;
// an empty URL when the request goes directly.
QUrl proxyFor(const QUrl &url);

} // namespace KVSystemProxy
