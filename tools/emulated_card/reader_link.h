// The wire between a card and vpcd, the virtual reader of vsmartcard.
//
// vpcd listens on a TCP port of each reader slot. To connect is to insert a card; to disconnect is
// to pull it out. Messages are two bytes of length, big-endian, and as many bytes. A message of one
// byte is about power: 0 off, 1 on, 2 reset, 4 asks for the ATR. Others are command APDUs. The card
// answers a command and the question for the ATR, and nothing else.
#pragma once

#include <cstdint>
#include <string>

#include "emulated_card/bytes.h"

class ReaderLink {
 public:
  enum class Message { kNone, kPowerOff, kPowerOn, kReset, kAskAtr, kCommand, kGone };

  ReaderLink() = default;
  ~ReaderLink() { Remove(); }
  ReaderLink(const ReaderLink&) = delete;
  ReaderLink& operator=(const ReaderLink&) = delete;

  // False: nobody listens on this port of 127.0.0.1.
  bool Insert(std::uint16_t port);
  void Remove();
  // Pulls the card out, and keeps the line so that the reader can be seen to notice: Receive() then
  // answers kGone.
  void HangUp();

  bool inserted() const { return socket_ >= 0; }
  int descriptor() const { return socket_; }

  // The next message; `*command` receives the bytes of a command. kGone: the reader has closed the
  // connection.
  Message Receive(Bytes* command);
  // False: the reader is gone.
  bool Send(const Bytes& answer);

 private:
  bool ReceiveAll(Bytes* bytes);

  int socket_ = -1;
};
