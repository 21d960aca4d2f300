#ifndef CURL_NETWORK_CONNECTION_H
#define CURL_NETWORK_CONNECTION_H

#include <curl/curl.h>
#include <glib.h>
#include <pthread.h>

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "CurlHttpRequestData.h"
#include "CurlHttpResponseData.h"
#include "INetworkConnection.h"
#include "INetworkConnectionEventListener.h"

/**
 * @brief HTTP engine on libcurl's multi interface.
 *
 * Requests are queued from the main thread; one worker thread, alive only while transfers are in
 * flight, drives them all. When the last one finishes the worker posts one record through a pipe
 * and ends; the main loop's watch on the pipe joins it and reports every result to the listener.
 * All listener calls happen on the main loop. Only one worker exists per process.
 */
class CurlNetworkConnection : public INetworkConnection {
public:
    CurlNetworkConnection();
    /** @brief Cancels every transfer (joining the worker) and cleans libcurl up. */
    virtual ~CurlNetworkConnection();

    void HttpRequest(std::shared_ptr<IHttpRequestData> request) override;
    void CancelHttpRequest(std::shared_ptr<IHttpRequestData> request) override;
    void CancelHttpRequest(int requestId) override;
    void CancelAllHttpRequest() override;

    /** @brief Where results go (not owned); null drops them. */
    void SetListener(INetworkConnectionEventListener* listener) { mListener = listener; }

    /** @brief libcurl write function: appends a chunk to the session's packet. */
    static size_t ResponseHttpPacketCB(void* data, size_t size, size_t count, void* packet);
    /**
     * @brief A new array (array new) holding old followed by added; null, with an error logged,
     * for a negative length or an empty total.
     */
    static unsigned char* AppendPacketBodyData(unsigned char* oldData, long oldLength,
                                               unsigned char* addedData, long addedLength);

protected:
    /** @brief The pipe from the worker to the main loop and the GLib watch on its read end. */
    class PipeIOChannelData {
    public:
        PipeIOChannelData() : mGIOPipeChanel(nullptr), mWatchId(0), mReadFd(0), mWriteFd(0) {}
        virtual ~PipeIOChannelData() {}

        GIOChannel* mGIOPipeChanel;
        guint mWatchId;
        int mReadFd;
        int mWriteFd;
    };

    /** @brief One transfer: its easy handle, header list, request and response. */
    class CurlSingleEasySession {
    public:
        CurlSingleEasySession()
            : mEasyHandle(nullptr), mHeaderList(nullptr), mResultState(RESULT_IN_FLIGHT) {}
        // The easy handle and header list belong to the engine, which frees them.
        virtual ~CurlSingleEasySession() {}

        CURL* mEasyHandle;
        curl_slist* mHeaderList;
        std::shared_ptr<IHttpRequestData> mRequest;
        std::shared_ptr<CurlHttpResponseData> mResponse;
        int32_t mResultState;
    };

    /** @brief The multi handle and its transfers, in the order they were added. */
    class CurlMultiSession {
    public:
        CurlMultiSession() : mMultiHandle(nullptr) {}
        virtual ~CurlMultiSession() {}

        CURLM* mMultiHandle;
        std::list<std::shared_ptr<CurlSingleEasySession>> mEasySessionList;
    };

    /** @brief What the worker posts to the main loop; the reader owns and deletes it. */
    class PipeTransCurlData {
    public:
        explicit PipeTransCurlData(int32_t type = 0) : mType(type) {}
        virtual ~PipeTransCurlData() {}

        int32_t mType;
    };

    enum {
        RESULT_IN_FLIGHT = 0,
        RESULT_HTTP_OK = 1,
        RESULT_HTTP_FAILED = 2,
    };
    /** @brief The only record type posted: every transfer has finished. */
    static const int32_t PIPE_TRANS_ALL_DONE = 3;
    /** @brief A record travels as its address, one pointer wide. */
    static const unsigned PIPE_RECORD_SIZE = sizeof(PipeTransCurlData*);
    static const int APPEND_SESSION_FAILED = 4;

    bool MutexLockImpl(const char* caller, int line);
    bool MutexUnlockImpl(const char* caller, int line);

    void StartThread();
    void StopThread();
    static void* StartCurlMultiMainLoop(void* connection);
    static gboolean SGIOPipeWatchCB(GIOChannel* channel, GIOCondition condition, void* connection);
    void CheckThreadStatus(char* buffer, unsigned length);
    void ResponseHttpRequest();
    int AppendEasySession(std::shared_ptr<CurlSingleEasySession> session);
    std::shared_ptr<CurlSingleEasySession> FindSingleEasySessiong(void* easyHandle);
    std::shared_ptr<CurlSingleEasySession> FindSingleEasySessiong(int requestId);
    void DestoryHttpRequest(std::shared_ptr<CurlSingleEasySession> session);
    void DestoryAllHttpRequest();
    std::string GetSystemNetworkProxyAddressStr();

    INetworkConnectionEventListener* mListener;
    PipeIOChannelData mPipeIOChannelData;
    std::shared_ptr<CurlMultiSession> mMultiSession;
    pthread_mutex_t mMutex;

    static pthread_t mThread;
    static const char* const INVALID_PROXY_HTTP_ADDRESS;
    static const char* const INVALID_PROXY_IP_ADDRESS;
    static const char* const SSL_CIPHER_OPTION_VALUE;
    static const char* const ENCODING_OPTION_VALUE;

private:
    CurlNetworkConnection(const CurlNetworkConnection&) = delete;
    CurlNetworkConnection& operator=(const CurlNetworkConnection&) = delete;
};

#endif
