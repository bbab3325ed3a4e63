#include "PlivHost/MessageStream.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include "Log/Log.h"
#include "PlivHost/Names.h"

namespace platform {
namespace {

constexpr size_t kHeaderSize = 16;  // the bytes of a header that tell the message's size
constexpr int kDropsAtOnce = 16;    // after these, other connections get their turn

using Header = std::array<unsigned char, kHeaderSize>;

// A number in the byte order that the header states.
uint64_t NumberAt(const Header& header, size_t at) {
    guint32 number = 0;
    memcpy(&number, header.data() + at, sizeof number);
    return header[0] == 'B' ? GUINT32_FROM_BE(number) : GUINT32_FROM_LE(number);
}

uint64_t SizeOf(const Header& header) {
    const uint64_t body = NumberAt(header, 4);
    const uint64_t fields = NumberAt(header, 12);
    return kHeaderSize + (fields + 7) / 8 * 8 + body;
}

bool WantsReply(const Header& header) {
    return header[1] == G_DBUS_MESSAGE_TYPE_METHOD_CALL &&
           !(header[2] & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
}

// Splits the byte stream into messages.
class Reader {
public:
    Reader(GSocket* socket, std::shared_ptr<LargeCalls> largeCalls)
        : m_socket(Share(socket)), m_largeCalls(std::move(largeCalls)) {}

    GSocket* Socket() const { return m_socket.get(); }

    // Like g_pollable_input_stream_read_nonblocking: 0 is the end, -1 an error.
    gssize Read(char* to, size_t size, GError** error) {
        for (int drops = 0; drops < kDropsAtOnce;) {
            gssize got = 0;
            if (m_left > 0 && m_dropping) {
                got = Drop(error);
                ++drops;
            } else if (m_left > 0) {
                got = Receive(to, std::min<uint64_t>(size, m_left), error);
                return Count(got);
            } else if (m_known == kHeaderSize) {
                return HandOutHeader(to, size);
            } else {
                got = Receive(reinterpret_cast<char*>(m_header.data()) + m_known,
                              kHeaderSize - m_known, error);
                if (got > 0 && (m_known += static_cast<size_t>(got)) == kHeaderSize) JudgeHeader();
            }
            if (got <= 0) return got;
        }
        g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK, "later");
        return -1;
    }

private:
    gssize Receive(char* to, size_t size, GError** error) {
        return g_socket_receive_with_blocking(m_socket.get(), to, size, FALSE, nullptr, error);
    }
    gssize Count(gssize got) {
        if (got > 0) m_left -= static_cast<uint64_t>(got);
        return got;
    }
    gssize Drop(GError** error) {
        std::array<char, 16384> bytes;
        return Count(Receive(bytes.data(), std::min<uint64_t>(bytes.size(), m_left), error));
    }

    // An invalid header is passed on: GDBus then closes the connection.
    void JudgeHeader() {
        const uint64_t size = SizeOf(m_header);
        const bool isHeader = m_header[0] == 'l' || m_header[0] == 'B';
        m_dropping = isHeader && size > kMaxCallBytes;
        if (!m_dropping) return;
        m_left = size - kHeaderSize;
        m_known = 0;
        if (WantsReply(m_header))
            m_largeCalls->Refuse(static_cast<guint32>(NumberAt(m_header, 8)), size);
    }
    gssize HandOutHeader(char* to, size_t size) {
        const size_t part = std::min(size, kHeaderSize - m_handedOut);
        memcpy(to, m_header.data() + m_handedOut, part);
        m_handedOut += part;
        if (m_handedOut == kHeaderSize) {
            m_left = SizeOf(m_header) - kHeaderSize;
            m_known = m_handedOut = 0;
        }
        return static_cast<gssize>(part);
    }

    const ObjectPtr<GSocket> m_socket;
    const std::shared_ptr<LargeCalls> m_largeCalls;
    Header m_header{};
    size_t m_known = 0;      // header bytes received
    size_t m_handedOut = 0;  // header bytes passed on
    uint64_t m_left = 0;     // bytes left of the message after its header
    bool m_dropping = false;
};

// The GObject streams. Given GIO's own stream of a socket, GDBus writes to the socket itself and
// then also wants to read from it; therefore there are two.
struct Input {
    GInputStream parent;
    Reader* reader;  // owned; created right after the object
};
struct Output {
    GOutputStream parent;
    GSocket* socket;  // owned, created likewise
};

Reader& ReaderOf(gpointer input) {
    return *static_cast<Input*>(input)->reader;
}
GSocket* SocketOf(gpointer output) {
    return static_cast<Output*>(output)->socket;
}

void FinalizeInput(GObject* object) {
    delete reinterpret_cast<Input*>(object)->reader;
    G_OBJECT_CLASS(g_type_class_peek(G_TYPE_INPUT_STREAM))->finalize(object);
}
void FinalizeOutput(GObject* object) {
    g_object_unref(SocketOf(object));
    G_OBJECT_CLASS(g_type_class_peek(G_TYPE_OUTPUT_STREAM))->finalize(object);
}

gboolean IsReadable(GPollableInputStream* stream) {
    return g_socket_condition_check(ReaderOf(stream).Socket(), G_IO_IN) != 0;
}
gboolean IsWritable(GPollableOutputStream* stream) {
    return g_socket_condition_check(SocketOf(stream), G_IO_OUT) != 0;
}

GSource* SourceOf(gpointer stream, GSocket* socket, GIOCondition condition,
                  GCancellable* cancellable) {
    GSource* ready = g_socket_create_source(socket, condition, cancellable);
    g_source_set_dummy_callback(ready);
    GSource* source = g_pollable_source_new(G_OBJECT(stream));
    g_source_add_child_source(source, ready);
    g_source_unref(ready);
    return source;
}
GSource* CreateReadable(GPollableInputStream* stream, GCancellable* cancellable) {
    return SourceOf(stream, ReaderOf(stream).Socket(), G_IO_IN, cancellable);
}
GSource* CreateWritable(GPollableOutputStream* stream, GCancellable* cancellable) {
    return SourceOf(stream, SocketOf(stream), G_IO_OUT, cancellable);
}

gssize ReadNonblocking(GPollableInputStream* stream, void* to, gsize size, GError** error) {
    return ReaderOf(stream).Read(static_cast<char*>(to), size, error);
}
gssize WriteNonblocking(GPollableOutputStream* stream, const void* from, gsize size,
                        GError** error) {
    return g_socket_send_with_blocking(SocketOf(stream), static_cast<const gchar*>(from), size,
                                       FALSE, nullptr, error);
}

// Closes the socket itself, at once and on the calling thread: a stream that GDBus frees late must
// not keep a descriptor.
template <typename Stream>
void Close(Stream* stream, GSocket* socket, GAsyncReadyCallback done, gpointer data) {
    g_socket_close(socket, nullptr);
    const ObjectPtr<GTask> task(g_task_new(stream, nullptr, done, data));
    g_task_return_boolean(task.get(), TRUE);
}
template <typename Stream>
gboolean FinishClose(Stream*, GAsyncResult* result, GError** error) {
    return g_task_propagate_boolean(G_TASK(result), error);
}
void CloseInput(GInputStream* stream, int, GCancellable*, GAsyncReadyCallback done, gpointer data) {
    Close(stream, ReaderOf(stream).Socket(), done, data);
}
void CloseOutput(GOutputStream* stream, int, GCancellable*, GAsyncReadyCallback done,
                 gpointer data) {
    Close(stream, SocketOf(stream), done, data);
}

void InitInput(gpointer itsClass, gpointer) {
    G_OBJECT_CLASS(itsClass)->finalize = FinalizeInput;
    G_INPUT_STREAM_CLASS(itsClass)->close_async = CloseInput;
    G_INPUT_STREAM_CLASS(itsClass)->close_finish = FinishClose<GInputStream>;
}
void InitOutput(gpointer itsClass, gpointer) {
    G_OBJECT_CLASS(itsClass)->finalize = FinalizeOutput;
    G_OUTPUT_STREAM_CLASS(itsClass)->close_async = CloseOutput;
    G_OUTPUT_STREAM_CLASS(itsClass)->close_finish = FinishClose<GOutputStream>;
}
void InitPollableInput(gpointer interface, gpointer) {
    auto* pollable = static_cast<GPollableInputStreamInterface*>(interface);
    pollable->is_readable = IsReadable;
    pollable->create_source = CreateReadable;
    pollable->read_nonblocking = ReadNonblocking;
}
void InitPollableOutput(gpointer interface, gpointer) {
    auto* pollable = static_cast<GPollableOutputStreamInterface*>(interface);
    pollable->is_writable = IsWritable;
    pollable->create_source = CreateWritable;
    pollable->write_nonblocking = WriteNonblocking;
}

GType Register(GType parent, const char* name, guint classSize, GClassInitFunc initClass,
               guint size, GType interface, GInterfaceInitFunc initInterface) {
    const GInterfaceInfo info{initInterface, nullptr, nullptr};
    const GType type = g_type_register_static_simple(parent, name, classSize, initClass, size,
                                                     nullptr, G_TYPE_FLAG_NONE);
    g_type_add_interface_static(type, interface, &info);
    return type;
}

ObjectPtr<GInputStream> NewInput(GSocket* socket, std::shared_ptr<LargeCalls> largeCalls) {
    static const GType type =
        Register(G_TYPE_INPUT_STREAM, "PlatformMessageInput", sizeof(GInputStreamClass), InitInput,
                 sizeof(Input), G_TYPE_POLLABLE_INPUT_STREAM, InitPollableInput);
    auto* input = static_cast<Input*>(g_object_new(type, nullptr));
    input->reader = new Reader(socket, std::move(largeCalls));
    return ObjectPtr<GInputStream>(&input->parent);
}

ObjectPtr<GOutputStream> NewOutput(GSocket* socket) {
    static const GType type =
        Register(G_TYPE_OUTPUT_STREAM, "PlatformMessageOutput", sizeof(GOutputStreamClass),
                 InitOutput, sizeof(Output), G_TYPE_POLLABLE_OUTPUT_STREAM, InitPollableOutput);
    auto* output = static_cast<Output*>(g_object_new(type, nullptr));
    output->socket = static_cast<GSocket*>(g_object_ref(socket));
    return ObjectPtr<GOutputStream>(&output->parent);
}

}  // namespace

void LargeCalls::Refuse(guint32 serial, size_t size) {
    PLATFORM_LOG(kLogTag, LOG_WARNING, "a call of %zu bytes is refused", size);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_answering)
        m_early.push_back(serial);
    else if (const auto outbox = m_outbox.lock())
        Answer(*outbox, serial);
}

void LargeCalls::AnswerOn(const std::shared_ptr<Outbox>& outbox) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_outbox = outbox;
    m_answering = true;
    for (const guint32 serial : std::exchange(m_early, {})) Answer(*outbox, serial);
}

void LargeCalls::Answer(Outbox& outbox, guint32 serial) {
    GVariant* body = g_variant_new("(s)", "the call is too large: a mebibyte is the most");
    outbox.PostReply({serial, "", kErrorLimitReached, VariantPtr(g_variant_ref_sink(body))});
}

ObjectPtr<GIOStream> NewMessageStream(GSocket* socket, std::shared_ptr<LargeCalls> largeCalls) {
    const auto input = NewInput(socket, std::move(largeCalls));
    const auto output = NewOutput(socket);
    return ObjectPtr<GIOStream>(g_simple_io_stream_new(input.get(), output.get()));
}

}  // namespace platform
