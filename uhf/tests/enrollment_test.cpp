// Enrollment: what is asked of the host, what is printed, and when actions are allowed again.
#include "enrollment.h"

#include <gmock/gmock.h>

#include <climits>
#include <thread>

#include "ac/exception.h"
#include "globals.h"
#include "message_handling.h"

using second_host::Fields;
using second_host::host;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Enrollment : public testing::Test {
 protected:
  void SetUp() override { host().reset(); }

  static Handled request(const Fields& fields) {
    return handle(remoteEnrollCallback, "enroller_remote_enroll", fields);
  }

  // What a handler writes to standard error.
  template <class Action>
  static std::string printedBy(Action action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
  }

  static std::string printedFor(int error) {
    return printedBy([&] {
      EXPECT_TRUE(handle(errorOccurredCallback, "enroller_error", {{"error", error}}).marked());
    });
  }
};

const Fields CARD_FOR_42{{"type", "card"}, {"user_id", std::int64_t{42}}};

Fields with(Fields fields, const std::string& name, const second_host::Value& value) {
  fields.emplace_back(name, value);
  return fields;
}

}  // namespace

TEST_F(Enrollment, ARequestSuppressesActionsThenAsksForTheCard) {
  const auto handled = request(CARD_FOR_42);
  EXPECT_THAT(sentTypes(), ElementsAre("identifier_supress_actions", "enroll_card"));
  EXPECT_THAT(host().messages()[0].fields, IsEmpty());
  EXPECT_EQ(host().messages()[1].fields,
            (Fields{{"state", 1}, {"user_id", std::int64_t{42}}, {"remote", 1}, {"registration", ""}}));
  EXPECT_TRUE(handled.marked());
  EXPECT_EQ(handled.failure, "");
}

TEST_F(Enrollment, ARequestIsMarkedOnceItsMessagesAreSent) {
  request(CARD_FOR_42);
  EXPECT_THAT(host().calls(),
              ElementsAre("send identifier_supress_actions", "send enroll_card", "set_handled enroller_remote_enroll"));
}

TEST_F(Enrollment, ItsMessagesCarryNoArgumentAndWantNoAnswer) {
  request(CARD_FOR_42);
  sendAllowActions();
  ASSERT_EQ(host().messages().size(), 3U);
  for (const auto& message : host().messages()) {
    EXPECT_EQ(message.argument, 0) << message.type;
    EXPECT_FALSE(message.has_callback) << message.type;
    EXPECT_FALSE(message.synchronous) << message.type;
  }
}

TEST_F(Enrollment, AFailureIsPrintedBeforeActionsAreAllowed) {
  for (const auto& [handler, fields, text] : std::vector<std::tuple<void (*)(ac::Message*), Fields, std::string>>{
           {enrollTimeoutCallback, {}, "Falha ao cadastrar o cart\xC3\xA3o: timeout\n"},
           {errorOccurredCallback, {{"error", 1}}, "Cartao ja cadastrado\n"}}) {
    host().reset();
    std::string printed = "nothing was sent";
    host().on_call([&printed](const std::string& call) {
      if (call == "send identifier_allow_actions") {
        printed = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
      }
    });
    EXPECT_EQ(printedBy([&] { handle(handler, "outcome", fields); }), "");
    EXPECT_EQ(printed, text);
  }
}

TEST_F(Enrollment, RemoteIsTheNegationOfSave) {
  for (const auto& [save, remote] : std::vector<std::pair<int, int>>{{0, 1}, {1, 0}, {7, 0}, {-1, 0}, {INT_MIN, 0}}) {
    host().reset();
    request(with(CARD_FOR_42, "save", save));
    EXPECT_EQ(host().messages("enroll_card").at(0).fields.at(2),
              (std::pair<std::string, second_host::Value>("remote", remote)))
        << save;
  }
}

TEST_F(Enrollment, PassesUserAndRegistrationOn) {
  request({{"type", "card"}, {"user_id", std::int64_t{-9'000'000'000}}, {"registration", "ção 7"}});
  const auto fields = host().messages("enroll_card").at(0).fields;
  EXPECT_EQ(fields.at(1), (std::pair<std::string, second_host::Value>("user_id", std::int64_t{-9'000'000'000})));
  EXPECT_EQ(fields.at(3), (std::pair<std::string, second_host::Value>("registration", "ção 7")));
}

TEST_F(Enrollment, AnotherTypeIsIgnoredAndHandled) {
  for (const auto* type : {"Card", "CARD", "card ", "finger", ""}) {
    host().reset();
    const auto handled = request({{"type", type}, {"user_id", std::int64_t{42}}});
    EXPECT_THAT(sentTypes(), IsEmpty()) << type;
    EXPECT_TRUE(handled.marked()) << type;
  }
}

TEST_F(Enrollment, ARequestWithoutTypeOrUserIsRefusedUnmarked) {
  for (const Fields& fields :
       {Fields{}, Fields{{"type", "card"}}, Fields{{"user_id", std::int64_t{42}}},
        Fields{{"type", "card"}, {"user_id", 42}}, Fields{{"type", 1}, {"user_id", std::int64_t{42}}}}) {
    const auto handled = request(fields);
    EXPECT_EQ(handled.failure, "Invalid message parameters");
    EXPECT_FALSE(handled.marked());
  }
  EXPECT_THAT(sentTypes(), IsEmpty());
  EXPECT_THROW(remoteEnrollCallback(second_host::make_message("enroller_remote_enroll").get()), ac::ac_exception);
}

TEST_F(Enrollment, SuccessAllowsActions) {
  const auto printed = printedBy([] {
    const auto handled =
        handle(enrollRfidSuccessfulCallback, "enroll_rfid_successful", {{"user_card", std::int64_t{7}}});
    EXPECT_TRUE(handled.marked());
  });
  EXPECT_THAT(sentTypes(), ElementsAre("identifier_allow_actions"));
  EXPECT_THAT(host().messages()[0].fields, IsEmpty());
  EXPECT_EQ(printed, "");
}

TEST_F(Enrollment, SuccessWithoutItsCardLeavesActionsSuppressed) {
  const auto printed = printedBy([] {
    const auto handled = handle(enrollRfidSuccessfulCallback, "enroll_rfid_successful", {{"user_card", 7}});
    EXPECT_FALSE(handled.marked());
    EXPECT_EQ(handled.failure, "");
  });
  EXPECT_EQ(printed, "Invalid parameters\n");
  EXPECT_THAT(sentTypes(), IsEmpty());
}

TEST_F(Enrollment, TimeoutIsPrintedAndAllowsActions) {
  const auto printed = printedBy([] { EXPECT_TRUE(handle(enrollTimeoutCallback, "enroll_timeout").marked()); });
  EXPECT_EQ(printed, "Falha ao cadastrar o cart\xC3\xA3o: timeout\n");
  EXPECT_EQ(printed.size(), 37U + 1U);
  EXPECT_THAT(sentTypes(), ElementsAre("identifier_allow_actions"));
}

TEST_F(Enrollment, EachErrorHasItsText) {
  const std::vector<std::pair<int, std::string>> texts{
      {1, "Cartao ja cadastrado"},
      {2, "Digitais nao correspondentes"},
      {3, "Digital ja cadastrada"},
      {4, "Capacidade de digitais do equipamento atingida"},
      {5, "Tempo de resposta do servidor excedido"},
      {6, "Nao foi possivel conectar-se ao servidor"},
      {7, "Erro ao cadastrar digital no servidor"},
      {8, "Tempo para cadastro de cart\xC3\xA3o excedido"},
      {0, "Ocorreu um erro desconhecido"},
      {9, "Ocorreu um erro desconhecido"},
      {-1, "Ocorreu um erro desconhecido"},
      {INT_MAX, "Ocorreu um erro desconhecido"},
      {INT_MIN, "Ocorreu um erro desconhecido"},
  };
  for (const auto& [error, text] : texts) {
    host().reset();
    EXPECT_EQ(printedFor(error), text + '\n') << error;
    EXPECT_THAT(sentTypes(), ElementsAre("identifier_allow_actions")) << error;
  }
}

TEST_F(Enrollment, AnErrorWithoutItsCodeIsRefusedUnmarked) {
  for (const Fields& fields : {Fields{}, Fields{{"error", "8"}}, Fields{{"error", std::int64_t{8}}}}) {
    const auto handled = handle(errorOccurredCallback, "enroller_error", fields);
    EXPECT_EQ(handled.failure, "Invalid message parameters");
    EXPECT_FALSE(handled.marked());
  }
  EXPECT_THAT(sentTypes(), IsEmpty());
}

TEST_F(Enrollment, AllowingActionsComesBeforeTheMark) {
  for (const auto& [handler, fields] : std::vector<std::pair<void (*)(ac::Message*), Fields>>{
           {enrollRfidSuccessfulCallback, {{"user_card", std::int64_t{7}}}},
           {enrollTimeoutCallback, {}},
           {errorOccurredCallback, {{"error", 5}}}}) {
    host().reset();
    printedBy([&] { handle(handler, "outcome", fields); });
    EXPECT_THAT(host().calls(), ElementsAre("send identifier_allow_actions", "set_handled outcome"));
  }
}

TEST_F(Enrollment, TransferMarksTheMessageThenMovesIt) {
  handle(messageTransferCallback, "enroll_timeout");
  EXPECT_THAT(host().calls(), ElementsAre("set_handled enroll_timeout", "transfer enroll_timeout"));
}
