#include "view/view_connection.hpp"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <new>
#include <utility>

namespace polarize_tool {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using std::chrono::milliseconds;

// A handler tells what it can in its answer; what it throws is for nobody's eyes.
Answer answer_of(Call const& call) {
    try {
        return (*call.handler)(call.query);
    } catch (std::bad_alloc const&) {
        return refusal(
                   503, "This is too large for the memory of the machine; ask for a smaller region "
                        "or a larger scale.")
            .answer;
    } catch (...) {
        return refusal(500, "This could not be answered: an error in the program.").answer;
    }
}

} // namespace

View_connection::View_connection(
    asio::ip::tcp::socket socket, Connection_surroundings const& surroundings)
    : surroundings_{surroundings}, bytes_of_all_{surroundings.bytes_going_out},
      stream_{std::move(socket)}, pause_{stream_.get_executor()} {}

View_connection::~View_connection() {
    count_out(0);
}

void View_connection::start() {
    Error ignored;
    stream_.socket().set_option(asio::ip::tcp::no_delay(true), ignored);
    // The system's own megabytes would hide a reader that stalls, and take memory for it.
    stream_.socket().set_option(asio::socket_base::send_buffer_size(1 << 18), ignored);
    wait_for_request();
}

void View_connection::close() {
    Error ignored;
    pause_.cancel();
    stream_.socket().close(ignored);
}

void View_connection::wait_for_request() {
    is_busy_ = false;
    idle_since_ = Clock::now();
    limit(parser_.emplace());
    if (buffer_.size() > 0) {
        read_header();
        return;
    }
    View_limits const& limits = surroundings_.limits;
    stream_.expires_after(is_first_ ? limits.header_time : limits.idle_time);
    stream_.async_read_some(
        buffer_.prepare(longest_header),
        [self = shared_from_this()](Error const& error, std::size_t count) {
            if (!error) {
                self->buffer_.commit(count);
                self->read_header();
            }
        });
}

void View_connection::read_header() {
    // The first header's time has begun with the connection.
    if (!std::exchange(is_first_, false)) {
        stream_.expires_after(surroundings_.limits.header_time);
    }
    http::async_read_header(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](Error const& error, std::size_t) { self->take(error); });
}

void View_connection::take(Error const& error) {
    static auto const& of_http = make_error_code(http::error::end_of_stream).category();
    bool const has_ended =
        error == http::error::end_of_stream || error == http::error::partial_message;
    if (error && (has_ended || error.category() != of_http)) {
        return; // gone, or too slow
    }
    is_busy_ = true;
    if (error) {
        keeps_alive_ = false;
        answer_in_time(refusal_of_header(error));
        return;
    }
    Request_head const head = head_of(*parser_);
    // What follows a body that is not read is no request, and any other method may have one.
    keeps_alive_ = parser_->get().keep_alive() && head.method == "GET" && !head.has_body;
    answer_in_time(surroundings_.rules.decide(head));
}

void View_connection::answer_in_time(Decision decision) {
    View_limits const& limits = surroundings_.limits;
    Clock::time_point const now = Clock::now();
    auto const step =
        std::chrono::nanoseconds(std::chrono::seconds(1)) / limits.requests_per_second;
    next_request_ = std::max(next_request_, now - limits.burst * step) + step;
    Clock::time_point begin = next_request_;
    if (auto const* const refused = std::get_if<Refusal>(&decision);
        refused != nullptr && refused->is_guess) {
        begin = std::max(begin, now + limits.guess_pause);
    }
    if (begin <= now) {
        answer(std::move(decision));
        return;
    }
    pause_.expires_at(begin);
    pause_.async_wait(
        [self = shared_from_this(), held = std::move(decision)](Error const& error) mutable {
            if (!error) {
                self->answer(std::move(held));
            }
        });
}

void View_connection::answer(Decision decision) {
    if (auto* const refused = std::get_if<Refusal>(&decision)) {
        write(std::move(refused->answer));
    } else if (auto const* const file = std::get_if<Page_file const*>(&decision)) {
        write({200, std::string((*file)->media_type), std::string((*file)->content)});
    } else {
        is_trusted_ = true;
        call(std::move(std::get<Call>(decision)));
    }
}

// Of the answer that goes out, from when it was made: as long as it waits for the server's thread,
// it takes memory too.
void View_connection::count_out(std::size_t bytes) {
    *bytes_of_all_ += bytes - own_bytes_;
    own_bytes_ = bytes;
}

// On the thread of a call. Asked here and not as the request comes, so that what is made beyond the
// bound is at most one answer for each of these threads, however many requests came at once.
Answer View_connection::made(Call const& call) {
    bool const is_too_much = *bytes_of_all_ > surroundings_.limits.bytes_going_out;
    Answer answer =
        is_too_much
            ? refusal(
                  503, "Too much waits for readers that are slow to take it; ask again in a while.")
                  .answer
            : answer_of(call);
    count_out(answer.body.size());
    return answer;
}

void View_connection::call(Call call) {
    asio::post(
        surroundings_.workers, [self = shared_from_this(), call = std::move(call)]() mutable {
            auto const server = self->stream_.get_executor();
            // The connection goes back whole: it must not end on this thread.
            Answer answer = self->made(call);
            auto reply = [self = std::move(self), answer = std::move(answer)]() mutable {
                self->write(std::move(answer));
            };
            asio::post(server, std::move(reply));
        });
}

void View_connection::write(Answer answer) {
    bool const is_head = parser_->get().method() == http::verb::head;
    count_out(answer.body.size());
    response_.emplace(response_to(std::move(answer), keeps_alive_, is_head));
    serializer_.emplace(*response_);
    write_rest();
}

void View_connection::write_rest() {
    // A slow line is none that stalls: the time begins again with each part that went out.
    stream_.expires_after(surroundings_.limits.write_time);
    http::async_write_some(
        stream_, *serializer_, [self = shared_from_this()](Error const& error, std::size_t) {
            if (error) {
                return;
            }
            if (self->serializer_->is_done()) {
                self->next();
            } else {
                self->write_rest();
            }
        });
}

void View_connection::next() {
    serializer_.reset();
    response_.reset();
    count_out(0);
    if (keeps_alive_) {
        wait_for_request();
        return;
    }
    Error ignored;
    stream_.socket().shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
    close();
}

} // namespace polarize_tool
