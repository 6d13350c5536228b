#include "tests/support/closing_proxy.h"

#include "tests/support/scripted_service.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>
#include <system_error>
#include <thread>

namespace {

void sleep_milliseconds(int count) {
    std::this_thread::sleep_for(std::chrono::milliseconds(count));
}

/// A host and port as references hold them, little-endian: the port is aligned behind the text.
giop::octets place_of(uint16_t port) {
    giop::cdr_writer place;
    place.number<uint16_t>(0); // version, and what aligns the length, in an encapsulation
    place.text("127.0.0.1");
    place.number(port);
    return {place.bytes().begin() + sizeof(uint32_t), place.bytes().end()};
}

} // namespace

closing_proxy::closing_proxy(int service_port)
    : service_port_(static_cast<uint16_t>(service_port)),
      listener_([this](giop::connection& client, const giop::message& message) {
          serve(client, message);
      }) {
    look_for_service_at(listener_.port());
}

void closing_proxy::close(closing way, int delay, bool every_second) {
    close_when_told(way);
    delay_ = delay;
    every_second_ = every_second;
    told_ = std::numeric_limits<int>::max();
}

void closing_proxy::close_when_told(closing way) {
    requests_ = 0;
    closings_ = 0;
    told_ = 0;
    delay_ = 0;
    every_second_ = false;
    way_ = way;
}

void closing_proxy::wait_for_closings(int count) {
    told_ = count;
    while (closings_ < count) {
        sleep_milliseconds(1);
    }
    sleep_milliseconds(1); // nobody says when it has arrived
}

/// Objects that it hands out are reached through this proxy, too. Empty where it has gone.
giop::octets closing_proxy::answer_of_service(const giop::message& request) const {
    giop::octets answer;
    try {
        giop::connection service = giop::connection::to(service_port_);
        service.send(request.bytes);
        if (const std::optional<giop::message> whole = service.receive()) {
            answer = whole->bytes;
        }
    } catch (const std::system_error&) {
        // nobody listens
    }
    const giop::octets there = place_of(service_port_);
    const giop::octets here = place_of(listener_.port());
    auto found = answer.begin();
    while ((found = std::search(found, answer.end(), there.begin(), there.end())) != answer.end()) {
        found = std::copy(here.begin(), here.end(), found);
    }
    return answer;
}

void closing_proxy::serve(giop::connection& client, const giop::message& message) {
    if (message.type() != giop::message_type::request) {
        return;
    }
    const int number = ++requests_;
    closing way = way_;
    if (every_second_ && number % 2 == 0) {
        way = closing::none;
    }
    const giop::octets close_connection =
        giop::make_message(giop::message_type::close_connection, {});
    const bool is_served = way != closing::message_for_an_answer;
    const bool is_answered =
        is_served && way != closing::end_for_an_answer && way != closing::reset_for_an_answer;
    giop::octets answer = is_served ? answer_of_service(message) : giop::octets();
    if (is_served && answer.empty()) {
        client.shut_down();
        return;
    }
    if (way == closing::message_and_end_at_once) {
        answer.insert(answer.end(), close_connection.begin(), close_connection.end());
    }
    if (is_answered) {
        client.send(answer);
    }
    if (way == closing::none) {
        return;
    }
    sleep_milliseconds(delay_);
    while (told_ < number) {
        sleep_milliseconds(1);
    }
    if (way == closing::message || way == closing::message_and_end ||
        way == closing::message_for_an_answer) {
        client.send(close_connection);
    }
    if (way == closing::reset || way == closing::reset_for_an_answer) {
        client.reset();
    } else if (way != closing::message) {
        client.end_sending();
    }
    ++closings_;
    while (way != closing::half && client.receive()) {
        // none of it is begun
    }
}
