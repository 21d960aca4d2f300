// The curl connection engine: request set-up, the worker and its pipe, cancels and clean-up.
#include "CurlNetworkConnection.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include <platform/connection.h>

#include "BuildConfig.h"
#include "CurlVerboseLog.h"
#include "OrvexLog.h"

pthread_t CurlNetworkConnection::mThread = 0;
const char* const CurlNetworkConnection::INVALID_PROXY_HTTP_ADDRESS = "http://0.0.0.0";
const char* const CurlNetworkConnection::INVALID_PROXY_IP_ADDRESS = "0.0.0.0";
const char* const CurlNetworkConnection::SSL_CIPHER_OPTION_VALUE = "HIGH";
const char* const CurlNetworkConnection::ENCODING_OPTION_VALUE = "gzip,deflate";

#define MutexLock() MutexLockImpl(__func__, __LINE__)
#define MutexUnlock() MutexUnlockImpl(__func__, __LINE__)

namespace {

// The worker may be cancelled only while it waits in select. Anywhere else it may hold the mutex
// or be inside libcurl (connect, TLS, a resolver thread), and a cancel there would leave the
// mutex locked and libcurl half-way through.
inline void allowCancel() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr); }
inline void forbidCancel() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }

// Frees a transfer's easy handle and header list and forgets them.
void releaseTransfer(CURL*& easy, curl_slist*& headers) {
    if (headers) curl_slist_free_all(headers);
    headers = nullptr;
    curl_easy_cleanup(easy);
    easy = nullptr;
}

// The share object is used by the worker (transfers) and the main thread (set-up, clean-up);
// libcurl asks for a lock per kind of shared data.
std::mutex g_shareLocks[CURL_LOCK_DATA_LAST];

void lockShare(CURL*, curl_lock_data data, curl_lock_access, void*) { g_shareLocks[data].lock(); }

void unlockShare(CURL*, curl_lock_data data, void*) { g_shareLocks[data].unlock(); }

// Redirects stay on the scheme of the request: an https request never follows a Location to
// plain http (where its key would go out in clear), ftp or file.
std::string schemeOf(const std::string& url) {
    size_t end = url.find("://");
    if (end == std::string::npos) return std::string();
    std::string scheme = url.substr(0, end);
    for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return scheme == "http" || scheme == "https" ? scheme : std::string();
}

}  // namespace

CurlNetworkConnection::CurlNetworkConnection() : mListener(nullptr), mShare(nullptr) {
    curl_global_init(CURL_GLOBAL_ALL);
    pthread_mutex_init(&mMutex, nullptr);
    // TLS sessions and DNS answers outlive a burst, so that the second request of a chain resumes
    // the first one's session instead of a full handshake. Connections are not shared: the multi
    // handle and its connections still go after each burst.
    mShare = curl_share_init();
    if (mShare) {
        curl_share_setopt(mShare, CURLSHOPT_LOCKFUNC, &lockShare);
        curl_share_setopt(mShare, CURLSHOPT_UNLOCKFUNC, &unlockShare);
        curl_share_setopt(mShare, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
        curl_share_setopt(mShare, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    }
}

CurlNetworkConnection::~CurlNetworkConnection() {
    CancelAllHttpRequest();
    // Refused while an easy handle still uses the share: a transfer the engine lost track of.
    if (mShare && curl_share_cleanup(mShare) != CURLSHE_OK) ORVEX_LOGE("Failed curl_share_cleanup");
    curl_global_cleanup();
    pthread_mutex_destroy(&mMutex);
}

bool CurlNetworkConnection::MutexLockImpl(const char*, int) {
    return pthread_mutex_lock(&mMutex) == 0;
}

bool CurlNetworkConnection::MutexUnlockImpl(const char*, int) {
    return pthread_mutex_unlock(&mMutex) == 0;
}

// ---- Worker and pipe ----

void CurlNetworkConnection::StartThread() {
    // Without a worker nothing would ever run the queued transfers, and every later request would
    // join them on the same multi handle. They fail instead, reported from the main loop like any
    // burst's results (never from inside the request that found the failure), and the next request
    // starts afresh.
    auto failQueuedTransfers = [this] {
        if (!mMultiSession || !mMultiSession->mMultiHandle) return;
        if (MutexLock()) {
            for (auto& session : mMultiSession->mEasySessionList)
                session->mResultState = RESULT_HTTP_FAILED;
            MutexUnlock();
        }
        mPipeIOChannelData.mWatchId = g_idle_add(&CurlNetworkConnection::SFailedBurstCB, this);
    };
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        ORVEX_LOGE("pipe create failed");
        failQueuedTransfers();
        return;
    }
    mPipeIOChannelData.mReadFd = fds[0];
    mPipeIOChannelData.mWriteFd = fds[1];
    mPipeIOChannelData.mGIOPipeChanel = g_io_channel_unix_new(fds[0]);
    mPipeIOChannelData.mWatchId = g_io_add_watch(
        mPipeIOChannelData.mGIOPipeChanel, static_cast<GIOCondition>(G_IO_IN | G_IO_ERR | G_IO_HUP),
        reinterpret_cast<GIOFunc>(&CurlNetworkConnection::SGIOPipeWatchCB), this);
    // StopThread closes the descriptors itself, whatever the channel would do on unref.
    (void)g_io_channel_get_close_on_unref(mPipeIOChannelData.mGIOPipeChanel);
    if (pthread_create(&mThread, nullptr, &CurlNetworkConnection::StartCurlMultiMainLoop, this) !=
        0) {
        mThread = 0;
        ORVEX_LOGE("Failed create curl thread");
        StopThread();
        failQueuedTransfers();
    }
}

gboolean CurlNetworkConnection::SFailedBurstCB(void* connection) {
    auto* self = static_cast<CurlNetworkConnection*>(connection);
    self->mPipeIOChannelData.mWatchId = 0;
    self->ResponseHttpRequest();
    return FALSE;
}

void CurlNetworkConnection::StopThread() {
    if (mThread) {
        pthread_cancel(mThread);
        pthread_join(mThread, nullptr);
        mThread = 0;
    }
    if (mPipeIOChannelData.mReadFd) {
        // A worker that finished just before the cancel has posted a record nobody will read.
        int flags = fcntl(mPipeIOChannelData.mReadFd, F_GETFL);
        fcntl(mPipeIOChannelData.mReadFd, F_SETFL, flags | O_NONBLOCK);
        PipeTransCurlData* pending = nullptr;
        while (read(mPipeIOChannelData.mReadFd, &pending, PIPE_RECORD_SIZE) ==
               static_cast<ssize_t>(PIPE_RECORD_SIZE)) {
            delete pending;
            pending = nullptr;
        }
        close(mPipeIOChannelData.mReadFd);
        mPipeIOChannelData.mReadFd = 0;
    }
    if (mPipeIOChannelData.mWriteFd) {
        close(mPipeIOChannelData.mWriteFd);
        mPipeIOChannelData.mWriteFd = 0;
    }
    // Still attached when the transfers are cancelled before the worker reported: it must not
    // fire on a closed descriptor, or on this object once it is gone.
    if (mPipeIOChannelData.mWatchId) {
        g_source_remove(mPipeIOChannelData.mWatchId);
        mPipeIOChannelData.mWatchId = 0;
    }
    if (mPipeIOChannelData.mGIOPipeChanel) {
        g_io_channel_unref(mPipeIOChannelData.mGIOPipeChanel);
        mPipeIOChannelData.mGIOPipeChanel = nullptr;
    }
}

void* CurlNetworkConnection::StartCurlMultiMainLoop(void* connection) {
    forbidCancel();
    auto* self = static_cast<CurlNetworkConnection*>(connection);
    int running = 0;

    if (self->MutexLock()) {
        CURLMcode rc = curl_multi_perform(self->mMultiSession->mMultiHandle, &running);
        if (rc != CURLM_OK) ORVEX_LOGE("Failed multi perform :%d", rc);
        self->MutexUnlock();
    }

    do {
        long timeout = -1;
        if (self->MutexLock()) {
            curl_multi_timeout(self->mMultiSession->mMultiHandle, &timeout);
            self->MutexUnlock();
        }

        fd_set readSet, writeSet, exceptSet;
        FD_ZERO(&readSet);
        FD_ZERO(&writeSet);
        FD_ZERO(&exceptSet);
        int maxfd = -1;
        if (self->MutexLock()) {
            if (curl_multi_fdset(self->mMultiSession->mMultiHandle, &readSet, &writeSet, &exceptSet,
                                 &maxfd) != CURLM_OK)
                ORVEX_LOGE("Failed get multi fd set");
            self->MutexUnlock();
        }

        // Always at least a second: the loop paces itself and relies on the descriptors to wake
        // it early.
        struct timeval wait;
        wait.tv_sec = 1;
        wait.tv_usec = timeout >= 1 ? (timeout % 1000) * 1000 : 0;
        allowCancel();
        int ready = select(maxfd + 1, &readSet, &writeSet, &exceptSet, &wait);
        forbidCancel();

        if (self->MutexLock()) {
            if (ready < 0) ORVEX_LOGE("select error");
            curl_multi_perform(self->mMultiSession->mMultiHandle, &running);
            self->MutexUnlock();
        }
    } while (running != 0);

    for (;;) {
        while (!self->MutexLock()) {
        }
        int left = 0;
        CURLMsg* msg = curl_multi_info_read(self->mMultiSession->mMultiHandle, &left);
        // The message lives in the easy handle, which a cancel may free once we unlock.
        CURLMSG kind = msg ? msg->msg : CURLMSG_NONE;
        CURL* easy = msg ? msg->easy_handle : nullptr;
        CURLcode result = msg ? msg->data.result : CURLE_OK;
        self->MutexUnlock();
        if (!msg) break;
        if (kind != CURLMSG_DONE) continue;

        if (!self->MutexLock()) continue;
        std::shared_ptr<CurlSingleEasySession> session = self->FindSingleEasySessiong(easy);
        // Looked up and recorded under the lock, so that a cancel cannot free the handle between
        // the two.
        if (session) {
            long code = 0;
            curl_easy_getinfo(session->mEasyHandle, CURLINFO_RESPONSE_CODE, &code);
            if (code == 200 && result == CURLE_OK) {
                session->mResultState = RESULT_HTTP_OK;
            } else if (code == 200) {
                // The status was fine but the body was cut short: a partial answer is no answer.
                ORVEX_LOGE("Incomplete transfer :%d", static_cast<int>(result));
                session->mResultState = RESULT_HTTP_FAILED;
            } else {
                ORVEX_LOGE("Response Error Code :%d", static_cast<int>(code));
                session->mResultState = RESULT_HTTP_FAILED;
            }
        }
        self->MutexUnlock();
    }

    PipeTransCurlData* record = new (std::nothrow) PipeTransCurlData(PIPE_TRANS_ALL_DONE);
    if (write(self->mPipeIOChannelData.mWriteFd, &record, PIPE_RECORD_SIZE) < 1) {
        ORVEX_LOGE("Failed write pipe");
        delete record;
    }
    return nullptr;
}

gboolean CurlNetworkConnection::SGIOPipeWatchCB(GIOChannel*, GIOCondition condition,
                                                void* connection) {
    auto* self = static_cast<CurlNetworkConnection*>(connection);
    // Results delivered from here may start the next worker with a watch of its own; only this
    // watch's id is forgotten when it ends.
    const guint thisWatch = self->mPipeIOChannelData.mWatchId;
    auto end = [self, thisWatch]() -> gboolean {
        if (self->mPipeIOChannelData.mWatchId == thisWatch) self->mPipeIOChannelData.mWatchId = 0;
        return FALSE;
    };

    if (!self->mPipeIOChannelData.mGIOPipeChanel) {
        ORVEX_LOGE("INAVLID mGIOPipeChanel");
        return end();
    }
    if (condition & G_IO_IN) {
        PipeTransCurlData* slot = nullptr;
        if (read(self->mPipeIOChannelData.mReadFd, &slot, PIPE_RECORD_SIZE) == -1) {
            ORVEX_LOGE("Failed get pipe message");
            return TRUE;
        }
        self->CheckThreadStatus(reinterpret_cast<char*>(&slot), PIPE_RECORD_SIZE);
        return end();
    }
    if (condition & G_IO_ERR) {
        ORVEX_LOGE("G_IO_ERR");
        return end();
    }
    if (condition & G_IO_HUP) {
        ORVEX_LOGE("G_IO_HUP");
        return end();
    }
    return end();
}

void CurlNetworkConnection::CheckThreadStatus(char* buffer, unsigned length) {
    if (!buffer || length != PIPE_RECORD_SIZE) return;
    PipeTransCurlData* record = nullptr;
    memcpy(&record, buffer, PIPE_RECORD_SIZE);
    if (!record) {
        ORVEX_LOGE("Invalid pipe Curl data");
        return;
    }
    if (record->mType == PIPE_TRANS_ALL_DONE) {
        StopThread();
        ResponseHttpRequest();
    }
    delete record;
}

void CurlNetworkConnection::ResponseHttpRequest() {
    if (!mMultiSession || !mMultiSession->mMultiHandle) {
        ORVEX_LOGE("Failed get curl multi session");
        return;
    }
    if (!MutexLock()) return;
    ORVEX_LOGI("##");
    // A request queued after the worker's last perform, while it was already on its way out,
    // has never been started. It goes on a new multi handle with a new worker instead of being
    // dropped.
    std::list<std::shared_ptr<CurlSingleEasySession>> finished, unstarted;
    for (auto& session : mMultiSession->mEasySessionList) {
        if (session->mResultState == RESULT_IN_FLIGHT) {
            curl_multi_remove_handle(mMultiSession->mMultiHandle, session->mEasyHandle);
            unstarted.push_back(session);
        } else {
            finished.push_back(session);
        }
    }
    curl_multi_cleanup(mMultiSession->mMultiHandle);
    mMultiSession->mMultiHandle = nullptr;
    for (auto& session : finished) {
        releaseTransfer(session->mEasyHandle, session->mHeaderList);
    }
    mMultiSession->mEasySessionList.clear();
    bool restart = false;
    if (!unstarted.empty()) {
        mMultiSession->mMultiHandle = curl_multi_init();
        for (auto& session : unstarted) {
            if (mMultiSession->mMultiHandle &&
                curl_multi_add_handle(mMultiSession->mMultiHandle, session->mEasyHandle) ==
                    CURLM_OK) {
                mMultiSession->mEasySessionList.push_back(session);
                restart = true;
                continue;
            }
            ORVEX_LOGE("[Failed] curl_multi_add_handle");
            releaseTransfer(session->mEasyHandle, session->mHeaderList);
            session->mResultState = RESULT_HTTP_FAILED;
            finished.push_back(session);
        }
        if (!restart && mMultiSession->mMultiHandle) {
            curl_multi_cleanup(mMultiSession->mMultiHandle);
            mMultiSession->mMultiHandle = nullptr;
        }
    }
    MutexUnlock();
    if (restart) StartThread();

    for (auto& session : finished) {
        if (!mListener) continue;
        if (session->mResultState == RESULT_HTTP_OK)
            mListener->OnHttpResponseCompleted(session->mRequest, session->mResponse);
        else if (session->mResultState == RESULT_HTTP_FAILED)
            mListener->OnHttpResponseFailed(session->mRequest);
    }
}

// ---- Body ----

size_t CurlNetworkConnection::ResponseHttpPacketCB(void* data, size_t size, size_t count,
                                                   void* packet) {
    int32_t n = static_cast<int32_t>(size * count);
    if (n < 1) return 0;
    if (!data) {
        ORVEX_LOGE("Invalid received data");
        return static_cast<size_t>(n);
    }
    auto* totalPacket = static_cast<CurlHttpTotalPacketData*>(packet);
    if (!totalPacket) {
        ORVEX_LOGE("Invalid cur http packet data");
        return 0;
    }
    // Counted on what libcurl has decoded, so that a small compressed answer cannot grow without
    // bound; refusing the chunk ends the transfer as a failure.
    if (static_cast<int64_t>(totalPacket->Length) + n > ORVEX_MAX_BODY_BYTES) {
        ORVEX_LOGE("Response body over %d bytes", static_cast<int>(ORVEX_MAX_BODY_BYTES));
        return 0;
    }
    unsigned char* grown = AppendPacketBodyData(totalPacket->Buffer, totalPacket->Length,
                                                static_cast<unsigned char*>(data), n);
    if (totalPacket->Buffer) delete[] totalPacket->Buffer;
    totalPacket->Buffer = grown;
    totalPacket->Length += n;
    return static_cast<size_t>(n);
}

unsigned char* CurlNetworkConnection::AppendPacketBodyData(unsigned char* oldData, long oldLength,
                                                           unsigned char* addedData,
                                                           long addedLength) {
    if (oldLength < 0 || addedLength < 0) {
        ORVEX_LOGE("Invalid input length");
        return nullptr;
    }
    long total = oldLength + addedLength;
    if (total < 1) {
        ORVEX_LOGE("Invalied total len");
        return nullptr;
    }
    auto* buffer = new (std::nothrow) unsigned char[total];
    if (!buffer) return nullptr;
    if (oldData) memcpy(buffer, oldData, static_cast<size_t>(oldLength));
    if (addedData) memcpy(buffer + oldLength, addedData, static_cast<size_t>(addedLength));
    return buffer;
}

// ---- Sessions ----

int CurlNetworkConnection::AppendEasySession(std::shared_ptr<CurlSingleEasySession> session) {
    if (!session) {
        ORVEX_LOGE("[Failed] Invalid curlSingleEasySessiongPtr");
        return APPEND_SESSION_FAILED;
    }
    if (!mMultiSession || !mMultiSession->mMultiHandle) {
        ORVEX_LOGE("Failed get multi session or easy session list");
        return APPEND_SESSION_FAILED;
    }
    if (curl_multi_add_handle(mMultiSession->mMultiHandle, session->mEasyHandle) != CURLM_OK) {
        ORVEX_LOGE("[Failed] curl_multi_add_handle");
        return APPEND_SESSION_FAILED;
    }
    mMultiSession->mEasySessionList.push_back(session);
    return 0;
}

std::shared_ptr<CurlNetworkConnection::CurlSingleEasySession>
CurlNetworkConnection::FindSingleEasySessiong(void* easyHandle) {
    if (!mMultiSession) {
        ORVEX_LOGE("Invalid multi session");
        return nullptr;
    }
    for (auto& session : mMultiSession->mEasySessionList)
        if (session->mEasyHandle == easyHandle) return session;
    return nullptr;
}

std::shared_ptr<CurlNetworkConnection::CurlSingleEasySession>
CurlNetworkConnection::FindSingleEasySessiong(int requestId) {
    if (!mMultiSession) {
        ORVEX_LOGE("Invalid multi session");
        return nullptr;
    }
    for (auto& session : mMultiSession->mEasySessionList) {
        auto* request = dynamic_cast<CurlHttpRequestData*>(session->mRequest.get());
        if (request && request->RequestId == requestId) return session;
    }
    return nullptr;
}

// ---- Requests ----

std::string CurlNetworkConnection::GetSystemNetworkProxyAddressStr() {
    connection_h handle = nullptr;
    if (connection_create(&handle) != CONNECTION_ERROR_NONE) {
        ORVEX_LOGE("Failed Create connection handler");
        return std::string();
    }
    char* proxy = nullptr;
    connection_get_proxy(handle, CONNECTION_ADDRESS_FAMILY_IPV4, &proxy);
    std::string address;
    if (proxy && strcmp(proxy, INVALID_PROXY_HTTP_ADDRESS) != 0 &&
        strcmp(proxy, INVALID_PROXY_IP_ADDRESS) != 0)
        address = proxy;
    else
        ORVEX_LOGE("Invalid proxy address");
    free(proxy);
    // One handle per request would otherwise stay open for the life of the process.
    connection_destroy(handle);
    return address;
}

void CurlNetworkConnection::HttpRequest(std::shared_ptr<IHttpRequestData> request) {
    std::shared_ptr<CurlHttpRequestData> curlRequest =
        std::dynamic_pointer_cast<CurlHttpRequestData>(request);
    if (!curlRequest) {
        ORVEX_LOGE("Invalid httpRequestDataPtr");
        return;
    }

    CURL* easy = curl_easy_init();
    if (!easy) ORVEX_LOGE("Failed curl_easy_init");
    // A failed option is logged as this function's own and the set-up goes on.
    auto set = [easy](CURLoption option, auto value, const char* failure) {
        if (curl_easy_setopt(easy, option, value) != CURLE_OK)
            ORVEX_LOGE_IN("HttpRequest", "%s", failure);
    };

    set(CURLOPT_VERBOSE, 1L, "Failed CURLOPT_VERBOSE option");
    set(CURLOPT_URL, curlRequest->URL.c_str(), "Failed CURLOPT_URL option");
    std::string proxy = GetSystemNetworkProxyAddressStr();
    if (!proxy.empty()) set(CURLOPT_PROXY, proxy.c_str(), "Failed proxy option");
    curl_slist* headerList = nullptr;
    for (const std::string& header : curlRequest->Headers) {
        if (header.empty()) continue;
        curl_slist* appended = curl_slist_append(headerList, header.c_str());
        if (appended) headerList = appended;
    }
    if (headerList) set(CURLOPT_HTTPHEADER, headerList, "Failed CURLOPT_HTTPHEADER option");
    set(CURLOPT_FOLLOWLOCATION, 1L, "Failed CURLOPT_FOLLOWLOCATION option");
    set(CURLOPT_NOPROGRESS, 1L, "Failed CURLOPT_NOPROGRESS option");
    set(CURLOPT_SSL_CIPHER_LIST, SSL_CIPHER_OPTION_VALUE, "Failed CURLOPT_SSL_CIPHER_LIST option");
    const bool hasBody = !curlRequest->Body.empty();
    // libcurl reads the body in place; the session keeps the request, and so the body, alive.
    if (hasBody) set(CURLOPT_POSTFIELDS, curlRequest->Body.c_str(), "Failed CURLOPT_POST option");
    set(CURLOPT_POST, hasBody ? 1L : 0L, "Failed CURLOPT_POST option");
    set(CURLOPT_WRITEFUNCTION, &CurlNetworkConnection::ResponseHttpPacketCB,
        "Failed CURLOPT_WRITEFUNCTION option");

    auto response = std::make_shared<CurlHttpResponseData>();
    response->PacketData = std::make_shared<CurlHttpTotalPacketData>();
    CurlHttpTotalPacketData* packet = response->PacketData.get();

    set(CURLOPT_WRITEDATA, packet, "Failed CURLOPT_WRITEDATA option");
    set(CURLOPT_PRIVATE, packet, "Failed CURLOPT_PRIVATE option");
    set(CURLOPT_ACCEPT_ENCODING, ENCODING_OPTION_VALUE, "Failed CURLOPT_ENCODING option");
    set(CURLOPT_CAINFO, ORVEX_CA_FILE, "Failed CURLOPT_CAINFO option");
    if (easy) {
        // Beyond the request's own options: the verbose lines go to the platform log (redacted),
        // redirects are few and stay on the request's scheme, libcurl installs no signal
        // handlers (transfers run on the worker; on Linux it sends with MSG_NOSIGNAL, so a closed
        // peer gives EPIPE, not SIGPIPE), and TLS sessions are resumed across bursts.
        set(CURLOPT_DEBUGFUNCTION, &orvex_net::curlVerboseToLog,
            "Failed CURLOPT_DEBUGFUNCTION option");
        set(CURLOPT_MAXREDIRS, static_cast<long>(ORVEX_MAX_REDIRECTS),
            "Failed CURLOPT_MAXREDIRS option");
        std::string scheme = schemeOf(curlRequest->URL);
        if (scheme.empty())
            set(CURLOPT_FOLLOWLOCATION, 0L, "Failed CURLOPT_FOLLOWLOCATION option");
        else
            set(CURLOPT_REDIR_PROTOCOLS_STR, scheme.c_str(),
                "Failed CURLOPT_REDIR_PROTOCOLS_STR option");
        set(CURLOPT_NOSIGNAL, 1L, "Failed CURLOPT_NOSIGNAL option");
        if (mShare) set(CURLOPT_SHARE, mShare, "Failed CURLOPT_SHARE option");
    }

    auto session = std::make_shared<CurlSingleEasySession>();
    session->mEasyHandle = easy;
    session->mHeaderList = headerList;
    session->mRequest = request;
    session->mResponse = response;
    session->mResultState = RESULT_IN_FLIGHT;

    bool failed = false;
    bool newMultiHandle = false;
    if (!mMultiSession) mMultiSession = std::make_shared<CurlMultiSession>();
    if (!mMultiSession->mMultiHandle) {
        mMultiSession->mMultiHandle = curl_multi_init();
        if (mMultiSession->mMultiHandle)
            newMultiHandle = true;
        else
            failed = true;
    }
    if (!failed && MutexLock()) {
        failed = AppendEasySession(session) != 0;
        MutexUnlock();
    }

    if (failed) {
        ORVEX_LOGE("Failed append easy session");
        releaseTransfer(session->mEasyHandle, session->mHeaderList);
        // A multi handle made for this request alone has no worker; keeping it would leave the
        // next request waiting for one that never starts.
        if (newMultiHandle && mMultiSession->mEasySessionList.empty()) {
            curl_multi_cleanup(mMultiSession->mMultiHandle);
            mMultiSession->mMultiHandle = nullptr;
        }
        if (mListener) mListener->OnHttpRequestFailed(request);
        return;
    }
    if (mListener) mListener->OnHttpRequestCompleted(request);
    if (newMultiHandle) StartThread();
}

void CurlNetworkConnection::CancelHttpRequest(std::shared_ptr<IHttpRequestData> request) {
    CancelOneHttpRequest(&request, -1);
}

void CurlNetworkConnection::CancelHttpRequest(int requestId) {
    CancelOneHttpRequest(nullptr, requestId);
}

// Both cancels: by the request record (its id) or by the id itself.
void CurlNetworkConnection::CancelOneHttpRequest(const std::shared_ptr<IHttpRequestData>* request,
                                                 int requestId) {
    if (!mMultiSession || !mMultiSession->mMultiHandle) {
        ORVEX_LOGE_IN("CancelHttpRequest", "Failed get curl multi session");
        return;
    }
    if (!MutexLock()) return;
    ORVEX_LOGI_IN("CancelHttpRequest", "##");
    if (request) {
        auto* curlRequest = dynamic_cast<CurlHttpRequestData*>(request->get());
        if (!curlRequest) {
            ORVEX_LOGE_IN("CancelHttpRequest",
                          "Failed get curlHttpRequestDataPtr curl multi session");
            MutexUnlock();
            return;
        }
        requestId = curlRequest->RequestId;
    }
    std::shared_ptr<CurlSingleEasySession> session = FindSingleEasySessiong(requestId);
    if (!session) {
        ORVEX_LOGE_IN("CancelHttpRequest", "Failed find curl single easy session ptr");
        MutexUnlock();
        return;
    }
    DestoryHttpRequest(session);
    MutexUnlock();
}

void CurlNetworkConnection::CancelAllHttpRequest() {
    ORVEX_LOGI("##");
    StopThread();
    DestoryAllHttpRequest();
}

void CurlNetworkConnection::DestoryHttpRequest(std::shared_ptr<CurlSingleEasySession> session) {
    if (!mMultiSession || !session) {
        ORVEX_LOGE("Invalid Multisession Ptr or curlSingleEasySessiongPtr");
        return;
    }
    curl_multi_remove_handle(mMultiSession->mMultiHandle, session->mEasyHandle);
    releaseTransfer(session->mEasyHandle, session->mHeaderList);
    mMultiSession->mEasySessionList.remove(session);
    // Reported as "request completed" with the mutex still held: the listener must not call
    // back into the engine from here.
    if (mListener) mListener->OnHttpRequestCompleted(session->mRequest);
}

void CurlNetworkConnection::DestoryAllHttpRequest() {
    if (!mMultiSession || !mMultiSession->mMultiHandle) {
        ORVEX_LOGE("Failed get curl multi session");
        return;
    }
    if (!MutexLock()) return;
    ORVEX_LOGI("##");
    curl_multi_cleanup(mMultiSession->mMultiHandle);
    mMultiSession->mMultiHandle = nullptr;
    for (auto& session : mMultiSession->mEasySessionList) {
        releaseTransfer(session->mEasyHandle, session->mHeaderList);
    }
    mMultiSession->mEasySessionList.clear();
    mMultiSession.reset();
    MutexUnlock();
}
