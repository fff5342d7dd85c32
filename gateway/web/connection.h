// One client's connection, plain or over TLS.
#pragma once

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl/stream_base.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

#include "gateway/web/server.h"

namespace web {

// Shared with what it has under way.
template <typename Stream>
class Connection : public std::enable_shared_from_this<Connection<Stream>> {
 public:
  Connection(Stream stream, std::string address, Site& site, std::shared_ptr<Places> places, const Patience& patience)
      : stream_(std::move(stream)),
        address_(std::move(address)),
        site_(site),
        places_(std::move(places)),
        patience_(patience),
        place_(places_->take([this] { close(); })) {}
  ~Connection() { places_->leave(place_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  net::awaitable<void> serve() {
    const auto self = this->shared_from_this();
    for (bool goes_on = co_await shake_hands(); goes_on;) {
      goes_on = co_await serve_one();
    }
    places_->wait(place_);
    co_await say_goodbye();
    close();
  }

 private:
  static constexpr bool kIsSafe = !std::is_same_v<Stream, beast::tcp_stream>;
  static constexpr std::size_t kPiece = 4096;
  static constexpr std::size_t kMostDrained = std::size_t{256} * 1024;
  static constexpr std::chrono::seconds kGoodbye{1};
  static constexpr std::chrono::seconds kSignOfLife{15};

  using Parser = http::request_parser<http::string_body>;
  using error_code = boost::system::error_code;

  beast::tcp_stream& lowest() { return beast::get_lowest_layer(stream_); }

  void close() {
    error_code ignored;
    lowest().socket().close(ignored);
  }

  net::awaitable<bool> shake_hands() {
    error_code failure;
    if constexpr (kIsSafe) {
      lowest().expires_after(patience_.request);
      co_await stream_.async_handshake(net::ssl::stream_base::server, net::redirect_error(net::use_awaitable, failure));
    }
    co_return !failure;
  }

  // Whether another request may follow.
  net::awaitable<bool> serve_one() {
    places_->wait(place_);
    Parser parser;
    parser.header_limit(Server::kLongestHeader);
    parser.body_limit(Site::kLongestUpload);
    error_code failure = co_await receive_header(parser);
    typename Site::Admission admission;
    if (!failure) {
      admission = site_.admit(parser.get(), address_, kIsSafe);
      place_->is_known = place_->is_known || admission.visitor.role.has_value();
      failure = co_await receive_body(parser, admission.upload != nullptr);
    }
    place_->waits = false;
    if (failure) {
      if (const auto status = status_of(failure); status != http::status::unknown) {
        Response response = refusal(status, "this is no request that is served here");
        co_await send(response, false);
      }
      co_return false;
    }
    const bool goes_on = co_await respond(parser.get(), admission);
    co_return goes_on;
  }

  // Its beginning may be long in coming, the rest not.
  net::awaitable<error_code> receive_header(Parser& parser) {
    error_code failure;
    if (buffer_.size() == 0) {
      lowest().expires_after(patience_.idle);
      const std::size_t size =
          co_await stream_.async_read_some(buffer_.prepare(kPiece), net::redirect_error(net::use_awaitable, failure));
      buffer_.commit(size);
    }
    if (!failure) {
      lowest().expires_after(patience_.request);
      co_await http::async_read_header(stream_, buffer_, parser, net::redirect_error(net::use_awaitable, failure));
    }
    co_return failure;
  }

  // What is short has to come within the time that began with its header; what is long is to go on coming.
  net::awaitable<error_code> receive_body(Parser& parser, bool is_upload) {
    error_code failure;
    if (!is_upload) {
      if (parser.content_length().value_or(0) > Site::kLongestBody) {
        co_return http::make_error_code(http::error::body_limit);
      }
      parser.body_limit(Site::kLongestBody);
      co_await http::async_read(stream_, buffer_, parser, net::redirect_error(net::use_awaitable, failure));
    }
    while (!failure && !parser.is_done()) {
      lowest().expires_after(patience_.request);
      co_await http::async_read_some(stream_, buffer_, parser, net::redirect_error(net::use_awaitable, failure));
    }
    co_return failure;
  }

  // What to say to it; unknown: nothing, who has gone or sends nothing hears nothing.
  static http::status status_of(const error_code& failure) {
    if (failure == http::error::body_limit) {
      return http::status::payload_too_large;
    }
    if (failure == http::error::header_limit || failure == http::error::buffer_overflow) {
      return http::status::request_header_fields_too_large;
    }
    const bool is_of_parser = failure.category() == http::make_error_code(http::error::end_of_stream).category();
    const bool is_cut_off = failure == http::error::end_of_stream || failure == http::error::partial_message;
    return is_of_parser && !is_cut_off ? http::status::bad_request : http::status::unknown;
  }

  net::awaitable<bool> respond(const Request& request, typename Site::Admission& admission) {
    if (!admission.refused.has_value() && admission.route->show != nullptr) {
      const bool is_told = co_await tell_live(request, admission);
      if (is_told) {
        co_return false;
      }
      admission.refused = refusal(http::status::service_unavailable, "too many look on already");
    }
    if (!admission.refused.has_value() && admission.route->pass) {
      co_await pass_on(admission.route->pass(request, admission.visitor));
      co_return false;
    }
    Response response;
    if (admission.refused.has_value()) {
      response = std::move(*admission.refused);
    } else {
      response = co_await site_.answer(admission, request);
    }
    const bool goes_on = co_await send(response, request.keep_alive());
    co_return goes_on;
  }

  // Whether the connection goes on.
  net::awaitable<bool> send(Response& response, bool keeps_alive) {
    const bool wants_end = !response.keep_alive();
    response.keep_alive(keeps_alive && !wants_end);
    response.prepare_payload();
    error_code failure;
    lowest().expires_after(patience_.reader);
    co_await http::async_write(stream_, response, net::redirect_error(net::use_awaitable, failure));
    co_return !failure && response.keep_alive();
  }

  net::awaitable<bool> write(const std::string& text) {
    error_code failure;
    lowest().expires_after(patience_.reader);
    co_await net::async_write(stream_, net::buffer(text), net::redirect_error(net::use_awaitable, failure));
    co_return !failure;
  }

  static std::string text_of_header(const Response& response) {
    std::ostringstream header;
    header << response.base();
    return header.str();
  }

  // A browser says it itself when it comes back, and its page when it has had to begin anew.
  static std::string_view last_event_of(const Request& request) {
    constexpr std::string_view kField = "?last_event=";
    const auto header = view_of(request["Last-Event-ID"]);
    const auto target = view_of(request.target());
    const auto at = target.find(kField);
    return !header.empty() || at == target.npos ? header : target.substr(at + kField.size());
  }

  // Events until somebody has enough; false when there is no room for one more.
  net::awaitable<bool> tell_live(const Request& request, const typename Site::Admission& admission) {
    Show& show = *admission.route->show;
    const auto onlooker = show.look_on(last_event_of(request));
    if (onlooker == nullptr) {
      co_return false;
    }
    watch_for_end([onlooker] { onlooker->end(); });
    Response response = web::answer(http::status::ok, "text/event-stream", "");
    response.keep_alive(false);
    std::string text = text_of_header(response) + co_await show.beginning();
    bool is_there = co_await write(text);
    while (is_there && site_.may_look(admission.visitor)) {
      const auto next = co_await onlooker->next(kSignOfLife);
      is_there = next.has_value();
      if (is_there) {
        text = next->empty() ? ":\n\n" : *next;
        is_there = co_await write(text);
      }
    }
    show.leave(onlooker);
    co_return true;
  }

  // Piece after piece, each when he has taken the one before. What fails midway breaks off, so that nobody takes it for
  // all.
  net::awaitable<void> pass_on(Passing passing) {
    const auto hangup = std::make_shared<gateway::Hangup>();
    watch_for_end([hangup] { hangup->now(); });
    bool has_begun = false;
    const gateway::Daemon::Take take = [&](std::string text) -> net::awaitable<bool> {
      bool is_there = std::exchange(has_begun, true) || co_await begin_file(passing);
      is_there = is_there && (text.empty() || co_await write(chunk_of(text)));
      co_return is_there;
    };
    Response response;
    bool is_whole = false;
    try {
      const Json answer = co_await site_.daemon().talk(passing.talk, take, *hangup);
      response = json_answer(answer);
      is_whole = true;
    } catch (const std::exception&) {
      response = Site::answer_of_failure();
    }
    if (is_whole && !passing.file.empty()) {
      const bool is_there = co_await take("");
      if (is_there) {
        co_await write("0\r\n\r\n");
      }
    } else if (!has_begun) {
      co_await send(response, false);
    }
  }

  static std::string chunk_of(const std::string& text) {
    std::ostringstream size;
    size << std::hex << text.size();
    return size.str() + "\r\n" + text + "\r\n";
  }

  net::awaitable<bool> begin_file(const Passing& passing) {
    Response response = web::answer(http::status::ok, passing.type, "");
    response.set(http::field::content_disposition, "attachment; filename=\"" + passing.file + "\"");
    response.chunked(true);
    response.keep_alive(false);
    co_return co_await write(text_of_header(response));
  }

  // Who looks on says nothing more: whatever comes is his end.
  void watch_for_end(std::function<void()> end) {
    lowest().expires_never();
    stream_.async_read_some(buffer_.prepare(1), [self = this->shared_from_this(), end = std::move(end)](
                                                    const error_code&, std::size_t) { end(); });
  }

  // What he still sends is taken for a while: closed upon unread bytes, the connection would take the answer with it.
  net::awaitable<void> say_goodbye() {
    error_code failure;
    lowest().expires_after(kGoodbye);
    if constexpr (kIsSafe) {
      co_await stream_.async_shutdown(net::redirect_error(net::use_awaitable, failure));
    }
    lowest().socket().shutdown(net::ip::tcp::socket::shutdown_send, failure);
    buffer_.clear();
    for (std::size_t drained = 0; !failure && drained < kMostDrained;) {
      drained +=
          co_await lowest().async_read_some(buffer_.prepare(kPiece), net::redirect_error(net::use_awaitable, failure));
    }
  }

  Stream stream_;
  beast::flat_buffer buffer_{Server::kLongestHeader + Site::kLongestBody + kPiece};
  const std::string address_;
  Site& site_;
  const std::shared_ptr<Places> places_;
  const Patience patience_;
  const Places::Handle place_;
};

}  // namespace web
