// The curl connection engine: one worker thread per burst of transfers, reporting on the main loop.
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
    /** @brief An idle engine: no worker, no transfers, no listener. */
    CurlNetworkConnection();
    /** @brief Cancels every transfer (joining the worker) and cleans libcurl up. */
    virtual ~CurlNetworkConnection();

    /** @brief Queues a transfer and starts the worker if none runs. */
    void HttpRequest(std::shared_ptr<IHttpRequestData> request) override;
    /** @brief Cancels the transfer of this request, if it is still known. */
    void CancelHttpRequest(std::shared_ptr<IHttpRequestData> request) override;
    /** @brief Cancels the transfer with this request id, if it is still known. */
    void CancelHttpRequest(int requestId) override;
    /** @brief Cancels every transfer and stops the worker. */
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
    class PipeIOChannelData {
    public:
        PipeIOChannelData() : mGIOPipeChanel(nullptr), mWatchId(0), mReadFd(0), mWriteFd(0) {}
        virtual ~PipeIOChannelData() {}

        GIOChannel* mGIOPipeChanel;
        guint mWatchId;
        int mReadFd;
        int mWriteFd;
    };

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

    class CurlMultiSession {
    public:
        CurlMultiSession() : mMultiHandle(nullptr) {}
        virtual ~CurlMultiSession() {}

        CURLM* mMultiHandle;
        std::list<std::shared_ptr<CurlSingleEasySession>> mEasySessionList;
    };

    // What the worker posts: the record's address travels through the pipe (both ends are in this
    // process) and the reader deletes it.
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
    static const int32_t PIPE_TRANS_ALL_DONE = 3;
    static const unsigned PIPE_RECORD_SIZE = sizeof(PipeTransCurlData*);
    static const int APPEND_SESSION_FAILED = 4;

    bool MutexLockImpl(const char* caller, int line);
    bool MutexUnlockImpl(const char* caller, int line);

    void StartThread();
    // The worker can only be cancelled while it waits in select, never inside libcurl or with the
    // mutex held.
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
    // Guards the multi handle and the session list, which the worker and the main thread share.
    pthread_mutex_t mMutex;

    // Class-wide: one worker per process.
    static pthread_t mThread;
    static const char* const INVALID_PROXY_HTTP_ADDRESS;
    static const char* const INVALID_PROXY_IP_ADDRESS;
    static const char* const SSL_CIPHER_OPTION_VALUE;
    static const char* const ENCODING_OPTION_VALUE;

private:
    // Reports a burst whose worker could not start, from the main loop.
    static gboolean SFailedBurstCB(void* connection);
    void CancelOneHttpRequest(const std::shared_ptr<IHttpRequestData>* request, int requestId);

    // TLS sessions and DNS answers kept across bursts.
    CURLSH* mShare;

    CurlNetworkConnection(const CurlNetworkConnection&) = delete;
    CurlNetworkConnection& operator=(const CurlNetworkConnection&) = delete;
};

#endif
