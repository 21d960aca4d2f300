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
    /** @brief The pipe from the worker to the main loop and the GLib watch on its read end. */
    class PipeIOChannelData {
    public:
        /** @brief No pipe yet. */
        PipeIOChannelData() : mGIOPipeChanel(nullptr), mWatchId(0), mReadFd(0), mWriteFd(0) {}
        /** @brief The engine closes the pipe; nothing to do here. */
        virtual ~PipeIOChannelData() {}

        /** @brief Channel on the read end, watched by the main loop. */
        GIOChannel* mGIOPipeChanel;
        /** @brief Id of the GLib watch; 0 when none. */
        guint mWatchId;
        /** @brief Read end of the pipe (main loop). */
        int mReadFd;
        /** @brief Write end of the pipe (worker). */
        int mWriteFd;
    };

    /** @brief One transfer: its easy handle, header list, request and response. */
    class CurlSingleEasySession {
    public:
        /** @brief An empty session in flight. */
        CurlSingleEasySession()
            : mEasyHandle(nullptr), mHeaderList(nullptr), mResultState(RESULT_IN_FLIGHT) {}
        // The easy handle and header list belong to the engine, which frees them.
        /** @brief Releases nothing: the easy handle and header list belong to the engine. */
        virtual ~CurlSingleEasySession() {}

        /** @brief libcurl's handle of the transfer. */
        CURL* mEasyHandle;
        /** @brief The request's header lines as libcurl takes them. */
        curl_slist* mHeaderList;
        /** @brief The request being performed. */
        std::shared_ptr<IHttpRequestData> mRequest;
        /** @brief The answer collected so far. */
        std::shared_ptr<CurlHttpResponseData> mResponse;
        /** @brief RESULT_IN_FLIGHT, RESULT_HTTP_OK or RESULT_HTTP_FAILED. */
        int32_t mResultState;
    };

    /** @brief The multi handle and its transfers, in the order they were added. */
    class CurlMultiSession {
    public:
        /** @brief No multi handle yet. */
        CurlMultiSession() : mMultiHandle(nullptr) {}
        /** @brief The engine cleans the multi handle up. */
        virtual ~CurlMultiSession() {}

        /** @brief libcurl's multi handle driven by the worker. */
        CURLM* mMultiHandle;
        /** @brief The transfers on the multi handle. */
        std::list<std::shared_ptr<CurlSingleEasySession>> mEasySessionList;
    };

    /** @brief What the worker posts to the main loop; the reader owns and deletes it. */
    class PipeTransCurlData {
    public:
        /** @brief A record of the given type. */
        explicit PipeTransCurlData(int32_t type = 0) : mType(type) {}
        /** @brief Nothing to release. */
        virtual ~PipeTransCurlData() {}

        /** @brief What the record reports (PIPE_TRANS_ALL_DONE). */
        int32_t mType;
    };

    /** @brief The states of a transfer's result. */
    enum {
        /** @brief Not finished yet. */
        RESULT_IN_FLIGHT = 0,
        /** @brief Finished with status 200. */
        RESULT_HTTP_OK = 1,
        /** @brief Finished otherwise. */
        RESULT_HTTP_FAILED = 2,
    };
    /** @brief The only record type posted: every transfer has finished. */
    static const int32_t PIPE_TRANS_ALL_DONE = 3;
    /** @brief A record travels as its address, one pointer wide. */
    static const unsigned PIPE_RECORD_SIZE = sizeof(PipeTransCurlData*);
    /** @brief AppendEasySession's result when the transfer could not be added. */
    static const int APPEND_SESSION_FAILED = 4;

    /** @brief Locks the engine's mutex; logs and returns false on failure. */
    bool MutexLockImpl(const char* caller, int line);
    /** @brief Unlocks the engine's mutex; logs and returns false on failure. */
    bool MutexUnlockImpl(const char* caller, int line);

    /** @brief Starts the worker for the current multi session. */
    void StartThread();
    /** @brief Cancels and joins the worker; it can only be cancelled while it waits. */
    void StopThread();
    /** @brief The worker: drives the multi handle until every transfer has finished. */
    static void* StartCurlMultiMainLoop(void* connection);
    /** @brief Main-loop watch on the pipe: reads the worker's record and reports results. */
    static gboolean SGIOPipeWatchCB(GIOChannel* channel, GIOCondition condition, void* connection);
    /** @brief Handles one record read from the pipe. */
    void CheckThreadStatus(char* buffer, unsigned length);
    /** @brief Joins the finished worker and reports every finished transfer. */
    void ResponseHttpRequest();
    /** @brief Adds a transfer to the multi session, creating it when needed. */
    int AppendEasySession(std::shared_ptr<CurlSingleEasySession> session);
    /** @brief The session of an easy handle, or null. */
    std::shared_ptr<CurlSingleEasySession> FindSingleEasySessiong(void* easyHandle);
    /** @brief The session of a request id, or null. */
    std::shared_ptr<CurlSingleEasySession> FindSingleEasySessiong(int requestId);
    /** @brief Removes one transfer and frees its libcurl resources. */
    void DestoryHttpRequest(std::shared_ptr<CurlSingleEasySession> session);
    /** @brief Removes every transfer and the multi handle. */
    void DestoryAllHttpRequest();
    /** @brief The platform's proxy address, or an empty string when there is none. */
    std::string GetSystemNetworkProxyAddressStr();

    /** @brief Where results go (not owned). */
    INetworkConnectionEventListener* mListener;
    /** @brief The worker-to-main-loop pipe. */
    PipeIOChannelData mPipeIOChannelData;
    /** @brief The transfers in flight, or null when idle. */
    std::shared_ptr<CurlMultiSession> mMultiSession;
    /** @brief Guards the multi handle and the session list. */
    pthread_mutex_t mMutex;

    /** @brief The worker; one per process. */
    static pthread_t mThread;
    /** @brief A proxy address that means no proxy (with scheme). */
    static const char* const INVALID_PROXY_HTTP_ADDRESS;
    /** @brief A proxy address that means no proxy. */
    static const char* const INVALID_PROXY_IP_ADDRESS;
    /** @brief The TLS cipher list. */
    static const char* const SSL_CIPHER_OPTION_VALUE;
    /** @brief Accepted content encodings (all libcurl decodes). */
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
