// Every operation of every interface, invoked by its stub against a peer that knows the interface
// from tables alone: what goes out, what comes back, and what is raised.
#include "tests/wire/recorder.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

using namespace wire;

namespace {

constexpr uint64_t ROUNDS = 3; // with other values each

std::string name_of(const operation& operation) {
    return std::string(operation.interface) + " " + operation.name;
}

/// The number of operations in the list that the contract's own test holds.
int operations_in_contract() {
    std::ifstream list(SCHEMA_COUNTS);
    int sum = 0;
    for (std::string line; std::getline(list, line);) {
        std::istringstream columns(line);
        std::string module;
        int interfaces = 0;
        int operations = 0;
        if (line[0] != '#' && columns >> module >> interfaces >> operations) {
            sum += operations;
        }
    }
    return sum;
}

class Operations : public testing::Test {
  protected:
    /// For each operation and round, with the values to be sent and to be answered.
    template <typename Body>
    void for_each_operation(Body body) {
        for (int i = 0; i < operation_count; ++i) {
            for (uint64_t round = 0; round < ROUNDS; ++round) {
                SCOPED_TRACE(name_of(operations[i]) + ", round " + std::to_string(round));
                seed_ = static_cast<uint64_t>(i) * ROUNDS + round;
                try {
                    body(operations[i]);
                } catch (const CORBA::Exception& exception) {
                    ADD_FAILURE() << "it raised " << exception._name();
                }
            }
        }
    }

    sampler arguments() const { return sampler(2 * seed_, peer_.port()); }
    sampler results() const { return sampler(2 * seed_ + 1, peer_.port()); }

    /// Invokes it, answered with those octets, and gives what the caller is told.
    std::string invoke(const operation& operation, giop::reply_status status,
                       const giop::cdr_writer& answer) {
        peer_.answer_with(status, answer);
        const CORBA::Object_var object = peer_.object("some object");
        call call = {object, arguments(), {}};
        operation.invoke(call);
        return call.told.text();
    }

    /// An answer with sampled results, and what it tells.
    std::string make_answer(const operation& operation, giop::cdr_writer& out) {
        sampler values = results();
        writer results(values, out);
        results.put_reply(operation);
        return results.told();
    }

    recorder peer_;
    uint64_t seed_ = 0;
};

} // namespace

TEST_F(Operations, AreAllThatTheContractHas) {
    EXPECT_GT(operation_count, 0);
    EXPECT_EQ(operation_count, operations_in_contract());
}

TEST_F(Operations, SendTheirNameAndTheirArgumentsInOrder) {
    for_each_operation([this](const operation& operation) {
        giop::cdr_writer answer;
        make_answer(operation, answer);
        giop::cdr_writer expected;
        sampler values = arguments();
        writer(values, expected).put_request(operation);

        invoke(operation, giop::reply_status::no_exception, answer);

        const giop::request request = peer_.last_request();
        EXPECT_EQ(request.operation, operation.name);
        EXPECT_EQ(request.object_key, "some object");
        EXPECT_TRUE(expected.matches(request.arguments))
            << "expected:\n"
            << giop::hex(expected.bytes()) << "\nsent:\n"
            << giop::hex(request.arguments);
    });
}

TEST_F(Operations, AreTwoWayAndSentOnce) {
    for_each_operation([this](const operation& operation) {
        giop::cdr_writer answer;
        make_answer(operation, answer);
        const std::size_t before = peer_.request_count();
        invoke(operation, giop::reply_status::no_exception, answer);
        EXPECT_EQ(peer_.request_count(), before + 1);
        EXPECT_EQ(peer_.last_request().response_flags, 3);
    });
}

TEST_F(Operations, GiveTheResultAndTheOutArguments) {
    for_each_operation([this](const operation& operation) {
        giop::cdr_writer answer;
        const std::string expected = make_answer(operation, answer);
        EXPECT_EQ(invoke(operation, giop::reply_status::no_exception, answer), expected);
    });
}

TEST_F(Operations, ReadAnAnswerInTheOtherByteOrder) {
    for_each_operation([this](const operation& operation) {
        giop::cdr_writer answer(false);
        const std::string expected = make_answer(operation, answer);
        EXPECT_EQ(invoke(operation, giop::reply_status::no_exception, answer), expected);
    });
}

TEST_F(Operations, RaiseEachExceptionThatTheyDeclare) {
    int raised = 0;
    for_each_operation([this, &raised](const operation& operation) {
        for (int i = 0; i < operation.raise_count; ++i) {
            giop::cdr_writer answer;
            sampler values = results();
            writer exception(values, answer);
            exception.put_exception(operation.raises[i]);
            EXPECT_EQ(invoke(operation, giop::reply_status::user_exception, answer),
                      exception.told());
            ++raised;
        }
    });
    EXPECT_GT(raised, 0);
}

TEST_F(Operations, MakeUnknownOfAnExceptionThatTheyDoNotDeclare) {
    giop::cdr_writer answer;
    answer.text("IDL:Corvane/Vaultaro/SL/NoSuchException:1.0");
    for_each_operation([this, &answer](const operation& operation) {
        EXPECT_THROW(invoke(operation, giop::reply_status::user_exception, answer), CORBA::UNKNOWN);
    });
}

TEST_F(Operations, LetSystemExceptionsOut) {
    giop::cdr_writer answer;
    answer.text("IDL:omg.org/CORBA/NO_PERMISSION:1.0");
    answer.number<uint32_t>(17);
    answer.number<uint32_t>(CORBA::COMPLETED_NO);
    for_each_operation([this, &answer](const operation& operation) {
        try {
            invoke(operation, giop::reply_status::system_exception, answer);
            ADD_FAILURE() << "nothing was raised";
        } catch (const CORBA::NO_PERMISSION& exception) {
            EXPECT_EQ(exception.minor(), 17u);
            EXPECT_EQ(exception.completed(), CORBA::COMPLETED_NO);
        }
    });
}

TEST_F(Operations, RefuseAnAnswerThatEndsTooEarly) {
    int refused = 0;
    for_each_operation([this, &refused](const operation& operation) {
        giop::cdr_writer answer;
        make_answer(operation, answer);
        if (answer.size() == 0) {
            return;
        }
        giop::cdr_writer shorter;
        shorter.raw(giop::octets(answer.bytes().begin(), answer.bytes().end() - 1));
        EXPECT_THROW(invoke(operation, giop::reply_status::no_exception, shorter), CORBA::MARSHAL);
        ++refused;
    });
    EXPECT_GT(refused, 0);
}
