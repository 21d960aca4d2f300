// A request as a client gives it to the network proxy: method, URL, headers and body.
#ifndef NET_PROXY_HTTP_REQ_DATA_H
#define NET_PROXY_HTTP_REQ_DATA_H

#include <list>
#include <string>

/**
 * @brief What a client asks NetworkProxy to send.
 *
 * The client owns it; NetworkProxy::HttpRequest copies what it needs, so the record may be
 * dropped as soon as the call returns.
 */
class NetProxyHttpReqData {
public:
    virtual ~NetProxyHttpReqData() {}

    /** @brief The complete request URL, query included. */
    std::string URL;
    /** @brief The POST payload; an empty body sends the request as a GET. */
    std::string Body;
    /** @brief Complete header lines ("Name: value"), sent in this order; empty lines are skipped.
     */
    std::list<std::string> Headers;
};

#endif
