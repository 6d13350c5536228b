// A service that answers what no service should. The exchange fails, the next one finds its answer
// again, and data flows.

#include "tests/faults/faulty_host.h"
#include "tests/faults/raw_service.h"
#include "tests/support/scripted_service.h"

#include <random>

using giop::octets;
using giop::reply_status;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr uint32_t megabyte = 1 << 20;
constexpr int for_ever = 1'000'000'000;
constexpr const char* any_type = "IDL:omg.org/CORBA/Object:1.0";
constexpr const char* operation_failed = "IDL:Corvane/Vaultaro/SL/VLSLOpException:1.0";

// --- what is answered --------------------------------------------------------------------------

enum class afterwards { listens, closes };

struct odd_reply {
    const char* name;
    afterwards then;
    octets (*make)(const giop::request&);
    uint32_t megabytes = 0; ///< that follow, or as many as the client takes
};

void PrintTo(const odd_reply& reply, std::ostream* out) { *out << reply.name; }

octets reply_with(const giop::request& request, const giop::cdr_writer& body,
                  reply_status status = reply_status::no_exception) {
    return giop::make_reply(request.id, status, body.bytes());
}

/// A status 0 and the head of a text that says it is so long.
giop::cdr_writer text_of_length(uint32_t length) {
    giop::cdr_writer body;
    body.number<int32_t>(0);
    body.number(length);
    return body;
}

octets long_reply(const giop::request& request, uint32_t text_length) {
    giop::cdr_writer body = text_of_length(text_length + 1);
    body.raw(octets(text_length, 'x'));
    body.octet(0);
    return reply_with(request, body);
}

octets exception_reply(const giop::request& request, reply_status status, const std::string& id) {
    giop::cdr_writer body;
    body.text(id);
    body.raw(octets(64, 0xff));
    return reply_with(request, body, status);
}

octets forward(const giop::request& request, const giop::reference& to) {
    giop::cdr_writer body;
    giop::put_reference(body, to);
    return reply_with(request, body, reply_status::location_forward);
}

constexpr size_t TEXT_OFFSET = 32; // of the text in a reply: header, id, status, contexts, result

octets with_text_length(octets reply, uint32_t length) {
    giop::ordered_octets(length, &reply[TEXT_OFFSET - sizeof length], true);
    reply.resize(TEXT_OFFSET);
    return reply;
}

octets first_octets(octets message, size_t count) {
    message.resize(count);
    return message;
}

octets random_octets(size_t count) {
    std::mt19937 source; // the same ones each time
    octets all(count);
    for (unsigned char& each : all) {
        each = static_cast<unsigned char>(source());
    }
    return all;
}

const odd_reply odd_replies[] = {
    {"Nothing", afterwards::closes, [](const giop::request&) { return octets(); }},
    {"AnEmptyBody", afterwards::listens,
     [](const giop::request& request) { return reply_with(request, giop::cdr_writer()); }},
    {"ATextOfLengthZero", afterwards::listens,
     [](const giop::request& request) { return reply_with(request, text_of_length(0)); }},
    {"ATextWithoutItsTerminator", afterwards::listens,
     [](const giop::request& request) {
         giop::cdr_writer body = text_of_length(4);
         body.raw(octets(4, 'x'));
         return reply_with(request, body);
     }},
    {"ATextLongerThanTheMessage", afterwards::listens,
     [](const giop::request& request) { return reply_with(request, text_of_length(1000)); }},
    {"ATextOf4Gigabytes", afterwards::listens,
     [](const giop::request& request) { return reply_with(request, text_of_length(0xffffffff)); }},
    {"ATextOf64Megabytes", afterwards::listens,
     [](const giop::request& request) {
         return giop::with_length(with_text_length(long_reply(request, 0), 64 * megabyte),
                                  TEXT_OFFSET - giop::HEADER_SIZE + 64 * megabyte);
     },
     64},
    {"GarbageOctets", afterwards::closes, [](const giop::request&) { return random_octets(4096); }},
    {"ZeroOctets", afterwards::closes, [](const giop::request&) { return octets(4096); }},
    {"AnotherMajorVersion", afterwards::listens,
     [](const giop::request& request) { return giop::with_octet(long_reply(request, 3), 4, 9); }},
    {"ANewerMinorVersion", afterwards::listens,
     [](const giop::request& request) { return giop::with_octet(long_reply(request, 3), 5, 9); }},
    {"AnOlderMinorVersion", afterwards::closes,
     [](const giop::request& request) { return giop::with_octet(long_reply(request, 3), 5, 0); }},
    {"AnUnknownMessageType", afterwards::listens,
     [](const giop::request& request) { return giop::with_octet(long_reply(request, 3), 7, 99); }},
    {"AMessageOf4Gigabytes", afterwards::closes,
     [](const giop::request& request) {
         return giop::with_octet(long_reply(request, 3), 11, 0xff);
     }},
    {"ATruncatedHeader", afterwards::closes,
     [](const giop::request& request) { return first_octets(long_reply(request, 3), 7); }},
    {"ATruncatedReply", afterwards::closes,
     [](const giop::request& request) { return first_octets(long_reply(request, 3), 25); }},
    {"AFirstFragmentOnly", afterwards::closes,
     [](const giop::request& request) { return giop::fragments(long_reply(request, 99), 48)[0]; }},
    {"AFragmentOfNothing", afterwards::closes,
     [](const giop::request& request) { return giop::fragments(long_reply(request, 99), 48)[1]; }},
    {"ARequest", afterwards::closes,
     [](const giop::request& request) {
         return giop::make_request(request.id, "session", "getCloudManager", {});
     }},
    {"AMessageError", afterwards::closes,
     [](const giop::request&) {
         return giop::make_message(giop::message_type::message_error, {});
     }},
    {"AnUnknownStatus", afterwards::listens,
     [](const giop::request& request) {
         return giop::make_reply(request.id, static_cast<reply_status>(77), {});
     }},
    {"AMillionContextsThatDoNotCome", afterwards::closes,
     [](const giop::request& request) {
         return giop::with_octet(long_reply(request, 3), 22, 0x10); // of the count of contexts
     }},
    {"AWishForAnotherAddressingMode", afterwards::listens,
     [](const giop::request& request) {
         giop::cdr_writer body;
         body.number<int16_t>(0); // KeyAddr, which it was
         return reply_with(request, body, static_cast<reply_status>(5));
     }},
    {"AnExceptionOfAnUnknownKind", afterwards::listens,
     [](const giop::request& request) {
         return exception_reply(request, reply_status::user_exception, "IDL:Unheard/Of:1.0");
     }},
    {"AnExceptionWithoutAKind", afterwards::listens,
     [](const giop::request& request) {
         return reply_with(request, giop::cdr_writer(), reply_status::user_exception);
     }},
    {"AnExceptionOfTheServiceWithGarbageInIt", afterwards::listens,
     [](const giop::request& request) {
         return exception_reply(request, reply_status::user_exception, operation_failed);
     }},
    {"ASystemExceptionOfAnUnknownKind", afterwards::listens,
     [](const giop::request& request) {
         return giop::make_system_exception(request.id, "IDL:omg.org/CORBA/UNHEARD_OF:1.0");
     }},
    {"ASystemExceptionWithoutAKind", afterwards::listens,
     [](const giop::request& request) {
         return reply_with(request, giop::cdr_writer(), reply_status::system_exception);
     }},
    {"AForwardToNowhere", afterwards::listens,
     [](const giop::request& request) {
         return forward(request, {any_type, static_cast<uint16_t>(free_port()), "nowhere"});
     }},
    {"AForwardToNil", afterwards::listens,
     [](const giop::request& request) { return forward(request, {}); }},
    {"AForwardOfGarbage", afterwards::listens,
     [](const giop::request& request) {
         giop::cdr_writer body;
         body.raw(random_octets(200));
         return reply_with(request, body, reply_status::location_forward);
     }},
};

raw_service::reaction reaction_of(const odd_reply& odd) {
    return [odd](giop::connection& peer, const giop::request& request) {
        peer.send(odd.make(request));
        const octets chunk(megabyte, 'x');
        for (uint32_t i = 0; i < odd.megabytes && peer.send(chunk); ++i) {
        }
        if (odd.then == afterwards::closes) {
            peer.shut_down();
        }
    };
}

// --- at once -----------------------------------------------------------------------------------

/// What a backup asks.
const lines whole_backup = {"getHostSession",
                            "getCloudManager",
                            "aqueryFacet",
                            "amodifyFacet",
                            "update_ThrottleConfigParams",
                            "check_connections",
                            "check_bandwidth",
                            "check_bandwidth",
                            "check_bandwidth",
                            "check_connections",
                            "check_connections",
                            "destroy"};

class OddReplyRealTime : public FaultyHost, public testing::WithParamInterface<odd_reply> {
  protected:
    /// A backup whose request for `operation` gets the odd reply the first time.
    void back_up_with_odd(const std::string& operation) {
        service.react(operation, reaction_of(GetParam()));
        EXPECT_LT(
            delay_of(std::string(GetParam().name) + " to " + operation, [this] { back_up(); }),
            time_out - 1)
            << operation;
    }

    raw_service service;
};

INSTANTIATE_TEST_SUITE_P(Each, OddReplyRealTime, testing::ValuesIn(odd_replies),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(OddReplyRealTime, IsThatOfOneExchangeAndTheOthersAreAskedOnceEach) {
    for (const char* const operation :
         {"update_ThrottleConfigParams", "check_connections", "check_bandwidth", "destroy"}) {
        take_errors();
        back_up_with_odd(operation);
        EXPECT_THAT(service.take(), ElementsAreArray(whole_backup)) << operation;
        EXPECT_THAT(take_errors(), testing::SizeIs(operation == std::string("destroy") ? 0 : 2))
            << operation;
    }
}

TEST_P(OddReplyRealTime, WhileTheConnectionIsMadeLeavesThatToTheNextExchange) {
    for (const char* const operation :
         {"getHostSession", "getCloudManager", "aqueryFacet", "amodifyFacet"}) {
        back_up_with_odd(operation);
        const lines asked = service.take();
        ASSERT_GE(asked.size(), 3U) << operation;
        EXPECT_THAT(lines(asked.end() - 3, asked.end()),
                    ElementsAre("check_connections", "check_connections", "destroy"))
            << operation;
    }
}

// --- one after the other -----------------------------------------------------------------------

class StrangeReplyRealTime : public FaultyHost {
  protected:
    StrangeReplyRealTime() {
        open_server();
        open();
        image->write();
        clock.take_sleeps();
        service.take();
        take_errors();
    }

    raw_service service;
};

TEST_F(StrangeReplyRealTime, InFragmentsIsTaken) {
    service.react("check_bandwidth", [this](giop::connection& peer, const giop::request& request) {
        const octets whole = service.good_answer(
            request, std::string(3000, ' ') + "name=THR_WAIT_SECONDS,value=3,fixed=y;");
        for (const octets& each : giop::fragments(whole, 64)) {
            peer.send(each);
        }
    });
    EXPECT_LT(delay_of("a reply in fragments", [this] { image->write(); }), slack);
    image->write();
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_F(StrangeReplyRealTime, Of64MegabytesInFragmentsFailsItsExchangeOnly) {
    service.react("check_bandwidth", [](giop::connection& peer, const giop::request& request) {
        std::vector<octets> parts = giop::fragments(long_reply(request, 3 * megabyte), megabyte);
        giop::ordered_octets(64 * megabyte, &parts[0][TEXT_OFFSET - sizeof megabyte], true);
        for (int i = 0; i < 64 && peer.send(i == 0 ? parts[0] : parts[1]); ++i) {
        }
        peer.send(parts.back());
    });
    EXPECT_LT(delay_of("64 MB in fragments", [this] { image->write(); }), time_out + slack);
    EXPECT_THAT(take_errors(), Contains(HasSubstr("fail to check bandwidth from service.")));
    image->write();
    EXPECT_THAT(take_errors(), IsEmpty());
}

/// Replies that have the request sent again, to the same object.
struct sending_back {
    const char* name;
    octets (*make)(const giop::request&, uint16_t port);
    afterwards then;
};

void PrintTo(const sending_back& reply, std::ostream* out) { *out << reply.name; }

class SentBack : public StrangeReplyRealTime, public testing::WithParamInterface<sending_back> {
  protected:
    void send_back(int times) {
        service.react(
            "check_bandwidth",
            [this](giop::connection& peer, const giop::request& request) {
                peer.send(GetParam().make(request, service.port()));
                if (GetParam().then == afterwards::closes) {
                    peer.shut_down();
                }
            },
            times);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Each, SentBack,
    testing::Values(sending_back{"ByAnOrderlyClose",
                                 [](const giop::request&, uint16_t) {
                                     return giop::make_message(giop::message_type::close_connection,
                                                               {});
                                 },
                                 afterwards::closes},
                    sending_back{"ByAForward",
                                 [](const giop::request& request, uint16_t port) {
                                     return forward(request, {any_type, port, "query"});
                                 },
                                 afterwards::listens},
                    sending_back{"ByAForwardForEver",
                                 [](const giop::request& request, uint16_t port) {
                                     giop::cdr_writer body;
                                     giop::put_reference(body, {any_type, port, "query"});
                                     constexpr auto forward_for_ever = static_cast<reply_status>(4);
                                     return reply_with(request, body, forward_for_ever);
                                 },
                                 afterwards::listens}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(SentBack, IsSentOnceMore) {
    send_back(1);
    image->write();
    EXPECT_THAT(service.take(), ElementsAre("check_bandwidth", "check_bandwidth"));
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_P(SentBack, AgainAndAgainFailsItsExchangeAtOnce) {
    send_back(for_ever);
    EXPECT_LT(delay_of("a request sent back", [this] { image->write(); }), slack);
    EXPECT_THAT(service.take(), ElementsAre("check_bandwidth", "check_bandwidth"));
    EXPECT_THAT(take_errors(), Contains(HasSubstr("fail to check bandwidth from service.")));
    service.react("", nullptr);
    image->write();
    EXPECT_THAT(service.take(), ElementsAre("check_bandwidth"));
    EXPECT_THAT(take_errors(), IsEmpty());
}

// --- a reply that never comes, or not to its end -----------------------------------------------

class AwaitedReplyRealTime : public StrangeReplyRealTime,
                             public testing::WithParamInterface<odd_reply> {};

INSTANTIATE_TEST_SUITE_P(
    Each, AwaitedReplyRealTime,
    testing::Values(odd_reply{"ATruncatedHeader", afterwards::listens,
                              [](const giop::request& request) {
                                  return first_octets(long_reply(request, 3), 7);
                              }},
                    odd_reply{"ATruncatedReply", afterwards::listens,
                              [](const giop::request& request) {
                                  return first_octets(long_reply(request, 3), 25);
                              }},
                    odd_reply{"AFirstFragmentOnly", afterwards::listens,
                              [](const giop::request& request) {
                                  return giop::fragments(long_reply(request, 99), 48)[0];
                              }},
                    odd_reply{"AReplyToAnotherRequest", afterwards::listens,
                              [](const giop::request& request) {
                                  return giop::make_reply(request.id + 1000,
                                                          reply_status::no_exception, {});
                              }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(AwaitedReplyRealTime, HoldsAnExchangeUpForOneTimeOut) {
    service.react("check_bandwidth", reaction_of(GetParam()));
    EXPECT_LT(delay_of(GetParam().name, [this] { image->write(); }), time_out + slack);
    EXPECT_THAT(take_errors(), Contains(HasSubstr("fail to check bandwidth from service.")));
    EXPECT_LT(delay_of("the transfer after it", [this] { image->write(); }), slack);
    EXPECT_THAT(take_errors(), IsEmpty());
    EXPECT_THAT(service.take(), ElementsAre("check_bandwidth", "check_bandwidth"));
}

} // namespace
