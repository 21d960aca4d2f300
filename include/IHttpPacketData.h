// The common shape of an HTTP packet: a body and its length.
#ifndef I_HTTP_PACKET_DATA_H
#define I_HTTP_PACKET_DATA_H

/** @brief Base of the body buffers of HTTP responses. */
class IHttpPacketData {
public:
    virtual ~IHttpPacketData() {}
};

#endif
