#include "enrollment.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>

#include "ac/exception.h"
#include "ac/post_office.h"
#include "globals.h"

namespace {

constexpr const char* UNKNOWN_ERROR = "Ocorreu um erro desconhecido";

// By the enroller's error code, for fingerprints as well as cards.
constexpr std::array ERRORS{
    UNKNOWN_ERROR,
    "Cartao ja cadastrado",
    "Digitais nao correspondentes",
    "Digital ja cadastrada",
    "Capacidade de digitais do equipamento atingida",
    "Tempo de resposta do servidor excedido",
    "Nao foi possivel conectar-se ao servidor",
    "Erro ao cadastrar digital no servidor",
    "Tempo para cadastro de cartão excedido",
};

const char* errorText(int code) {
  const auto row = static_cast<std::size_t>(code);  // of a negative code beyond every table
  return row < ERRORS.size() ? ERRORS[row] : UNKNOWN_ERROR;
}

// In one piece, so that the lines of several threads do not mix.
void printLine(const std::string& text) { std::cerr << text + '\n'; }

[[noreturn]] void throwInvalidParameters() { throw ac::ac_exception("Invalid message parameters", true); }

void askForCard(std::int64_t user, int save, const std::string& registration) {
  ac::PostOffice::send_message(std::make_unique<ac::Message>("identifier_supress_actions"));
  auto request = std::make_unique<ac::Message>("enroll_card");
  request->add_int("state", 1);
  request->add_int64("user_id", user);
  request->add_int("remote", save == 0 ? 1 : 0);
  request->add_string("registration", registration);
  ac::PostOffice::send_message(std::move(request));
}

}  // namespace

void messageTransferCallback(ac::Message* message) {
  message->set_handled();
  message->transfer(&enqueuer);
}

void sendAllowActions() { ac::PostOffice::send_message(std::make_unique<ac::Message>("identifier_allow_actions")); }

void remoteEnrollCallback(ac::Message* message) {
  std::string type;
  std::int64_t user = 0;
  if (!message->get_string("type", &type) || !message->get_int64("user_id", &user)) {
    throwInvalidParameters();
  }
  int save = 0;
  std::string registration;
  message->get_int("save", &save);
  message->get_string("registration", &registration);
  if (type == "card") {
    askForCard(user, save, registration);
  }
  message->set_handled();
}

void enrollRfidSuccessfulCallback(ac::Message* message) {
  std::int64_t card = 0;
  if (!message->get_int64("user_card", &card)) {
    printLine("Invalid parameters");
    return;
  }
  sendAllowActions();
  message->set_handled();
}

void enrollTimeoutCallback(ac::Message* message) {
  printLine("Falha ao cadastrar o cartão: timeout");
  sendAllowActions();
  message->set_handled();
}

void errorOccurredCallback(ac::Message* message) {
  int error = 0;
  if (!message->get_int("error", &error)) {
    throwInvalidParameters();
  }
  printLine(errorText(error));
  sendAllowActions();
  message->set_handled();
}
