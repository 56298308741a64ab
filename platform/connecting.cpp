#include "platform/connecting.h"

#include "platform/fiber.h"
#include "platform/printers.h"
#include "platform/system.h"
#include "platform/text.h"
#include "platform/waiting.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <new>
#include <poll.h>
#include <span>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace rtsptap {
namespace {

// The first one of another family than the one before goes next, as long as there is one (RFC 8305, 4).
void TakeFamiliesInTurn(std::span<Address> addresses) {
    for (std::size_t at = 1; at < addresses.size(); ++at) {
        const auto isOther = [before = addresses[at - 1].storage.ss_family](const Address &address) {
            return address.storage.ss_family != before;
        };
        const auto rest = addresses.subspan(at);
        const auto other = std::ranges::find_if(rest, isOther);
        if (other != rest.end()) std::rotate(rest.begin(), other, other + 1);
    }
}

struct AnswerDeleter {
    void operator()(addrinfo *answer) const { freeaddrinfo(answer); }
};
using Answer = std::unique_ptr<addrinfo, AnswerDeleter>;

// Null: no address.
Answer AskResolver(const char *host, int flags) {
    addrinfo hints = {};
    hints.ai_flags = flags;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    return Answer(getaddrinfo(host, nullptr, &hints, &found) == 0 ? found : nullptr);
}

// ---- a name that a fiber asks for ----

// Of those who ask and of the thread that does it: whoever lets go last frees it, as no resolver can be called off.
struct Question {
    ~Question() {
        if (answered >= 0) close(answered);
    }
    HeapText host;
    int answered = -1;                  // eventfd, readable then
    std::atomic<bool> hasAnswer{false}; // written by the thread, behind the next
    Answer answer;
    // ---- under questionsLock ----
    int owners = 2;
    uint64_t sinceMs = 0;     // MonotonicMs
    Question *next = nullptr; // of those without an answer
};

constinit pthread_mutex_t questionsLock = PTHREAD_MUTEX_INITIALIZER; // of the list, too; a leaf
constinit Question *firstQuestion = nullptr;

struct LetGo {
    void operator()(Question *question) const {
        {
            const ScopedLock lock(questionsLock);
            if (--question->owners > 0) return;
        }
        delete question;
    }
};
using SharedQuestion = std::unique_ptr<Question, LetGo>;

void NoteAnswered(Question &question) {
    const uint64_t one = 1;
    question.hasAnswer.store(true, std::memory_order_release);
    {
        const ScopedLock lock(questionsLock);
        Question **link = &firstQuestion;
        while (*link != &question) link = &(*link)->next;
        *link = question.next;
    }
    if (write(question.answered, &one, sizeof one) < 0) DebugPrint(kDebugEntry, "\tthe answer is not waited for\n");
}

extern "C" {
static void *AnswerQuestion(void *argument) {
    const SharedQuestion question(static_cast<Question *>(argument));
    question->answer = AskResolver(question->host.get(), 0);
    NoteAnswered(*question);
    return nullptr;
}
}

// Begun lately. One name server that is dead, and many who try again and again, would make threads without end; who
// asks later than that gets one of his own, as the network may be there again. The caller holds the lock.
Question *FindQuestion(const char *host, uint64_t nowMs) {
    constexpr uint64_t kLateMs = 5000;
    Question *question = firstQuestion;
    while (question != nullptr && (nowMs - question->sinceMs > kLateMs || strcmp(question->host.get(), host) != 0))
        question = question->next;
    return question;
}

SharedQuestion Ask(const char *host) {
    const uint64_t now = MonotonicMs();
    const ScopedLock lock(questionsLock);
    if (Question *const asked = FindQuestion(host, now); asked != nullptr) {
        ++asked->owners;
        return SharedQuestion(asked);
    }
    std::unique_ptr<Question> question(new (std::nothrow) Question);
    if (question == nullptr) return nullptr;
    question->host = DuplicateText(host);
    question->answered = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    question->sinceMs = now;
    question->next = firstQuestion;
    pthread_t thread = {};
    const bool isAsked = question->host != nullptr && question->answered >= 0 &&
                         StartLibraryThread(thread, AnswerQuestion, question.get());
    if (!isAsked) return nullptr;
    ThreadDetach(thread);
    firstQuestion = question.get();
    return SharedQuestion(question.release());
}

AddressList ListAddresses(const addrinfo *at, uint16_t port) {
    AddressList list;
    for (; at != nullptr && list.count < kMostAddresses; at = at->ai_next) {
        if (at->ai_family != AF_INET && at->ai_family != AF_INET6) continue;
        Address address;
        address.length = at->ai_addrlen;
        std::memcpy(&address.storage, at->ai_addr, at->ai_addrlen);
        list.items[list.count++] = WithPort(address, port);
    }
    TakeFamiliesInTurn({list.items.data(), list.count});
    return list;
}

// An address as text is known at once.
AddressList FindOnFiber(const char *host, uint16_t port, int limitMs) {
    if (const Answer known = AskResolver(host, AI_NUMERICHOST)) return ListAddresses(known.get(), port);
    const SharedQuestion question = MustGiveUp() ? nullptr : Ask(host);
    if (question == nullptr) return {};
    pollfd answered = {question->answered, POLLIN, 0};
    WaitForSockets({&answered, 1}, limitMs == 0 ? -1 : limitMs);
    const bool isAnswered = question->hasAnswer.load(std::memory_order_acquire);
    return ListAddresses(isAnswered ? question->answer.get() : nullptr, port);
}

} // namespace

AddressList FindAddresses(const char *host, uint16_t port, int limitMs) {
    if (IsOnFiber()) return FindOnFiber(host, port, limitMs);
    const Answer answer = AskResolver(host, 0);
    return ListAddresses(answer.get(), port);
}

namespace {

constexpr uint64_t kAttemptDelayMs = 250; // RFC 8305, 8
constexpr uint64_t kNever = UINT64_MAX;

static_assert(kMostAddresses <= kMostAwaited);

// Attempts under way, by the place of their address; closed unless one is taken out.
struct Attempts {
    explicit Attempts(const AddressList &list) : addresses(list) { sockets.fill({-1, POLLOUT, 0}); }
    ~Attempts() {
        for (const pollfd &socket : sockets) CloseSock(socket.fd);
    }
    Attempts(const Attempts &) = delete;
    Attempts &operator=(const Attempts &) = delete;

    const AddressList &addresses;
    std::array<pollfd, kMostAddresses> sockets = {};
    std::size_t begun = 0;
    std::size_t underWay = 0;
    uint64_t nextAtMs = 0; // when the next one is begun, if none has connected by then
    int error = EHOSTUNREACH;
};

void GiveUp(Attempts &attempts, pollfd &socket) {
    attempts.error = LastError();
    CloseSock(std::exchange(socket.fd, -1));
    --attempts.underWay;
    attempts.nextAtMs = 0;
}

void BeginNext(Attempts &attempts) {
    const Address &address = attempts.addresses.items[attempts.begun];
    pollfd &socket = attempts.sockets[attempts.begun++];
    ++attempts.underWay;
    attempts.nextAtMs = MonotonicMs() + kAttemptDelayMs;
    socket.fd = OpenStreamSocket(address);
    const bool isBegun = socket.fd >= 0 && fcntl(socket.fd, F_SETFL, O_NONBLOCK) == 0 &&
                         (ConnectTo(socket.fd, address) || LastError() == EINPROGRESS);
    if (!isBegun) GiveUp(attempts, socket);
}

// Waits for the first attempt that ends, for the time of the next one, or for the end. The place of one that has
// connected; kMostAddresses when none has.
std::size_t AwaitOne(Attempts &attempts, uint64_t deadlineMs) {
    const bool hasNext = attempts.begun < attempts.addresses.count;
    const uint64_t untilMs = hasNext ? std::min(attempts.nextAtMs, deadlineMs) : deadlineMs;
    const uint64_t nowMs = MonotonicMs();
    const int waitMs = untilMs == kNever ? -1 : static_cast<int>(untilMs - std::min(nowMs, untilMs));
    if (WaitForSockets({attempts.sockets.data(), attempts.begun}, waitMs) < 1) return kMostAddresses;
    for (std::size_t at = 0; at < attempts.begun; ++at) {
        pollfd &socket = attempts.sockets[at];
        if (socket.fd < 0 || socket.revents == 0) continue;
        if (IsConnected(socket.fd)) return at;
        GiveUp(attempts, socket);
    }
    return kMostAddresses;
}

} // namespace

int ConnectToFirst(const AddressList &addresses, int limitMs, Address &connected) {
    Attempts attempts(addresses);
    const uint64_t deadlineMs = limitMs == 0 ? kNever : MonotonicMs() + static_cast<uint64_t>(limitMs);
    while (MonotonicMs() < deadlineMs && !MustGiveUp()) {
        const bool hasNext = attempts.begun < addresses.count;
        if (!hasNext && attempts.underWay == 0) break;
        if (hasNext && (attempts.underWay == 0 || MonotonicMs() >= attempts.nextAtMs)) BeginNext(attempts);
        const std::size_t at = attempts.underWay == 0 ? kMostAddresses : AwaitOne(attempts, deadlineMs);
        if (at == kMostAddresses) continue;
        UniqueSocket made(std::exchange(attempts.sockets[at].fd, -1));
        connected = addresses.items[at];
        return fcntl(made.Get(), F_SETFL, 0) == 0 ? made.Release() : -1;
    }
    SetLastError(attempts.underWay > 0 ? ETIMEDOUT : attempts.error);
    return -1;
}

} // namespace rtsptap
