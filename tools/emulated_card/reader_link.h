// The connection between a card and vpcd, the virtual reader of vsmartcard.
//
// vpcd listens on one TCP port for each reader slot. Connecting inserts a card, disconnecting
// removes it. A message consists of a two-byte big-endian length and that many bytes. A message of
// one byte controls the power: 0 off, 1 on, 2 reset, 4 asks for the ATR. All others are command
// APDUs. The card answers only commands and the request for the ATR.
#pragma once

#include <cstdint>
#include <string>

#include "emulated_card/bytes.h"

class ReaderLink {
 public:
  enum class Message { kNone, kPowerOff, kPowerOn, kReset, kGetAtr, kCommand, kDisconnected };

  ReaderLink() = default;
  ~ReaderLink() { Remove(); }
  ReaderLink(const ReaderLink&) = delete;
  ReaderLink& operator=(const ReaderLink&) = delete;

  // Connects to this port of 127.0.0.1. Returns false if nothing listens there.
  bool Insert(std::uint16_t port);
  void Remove();
  // Removes the card but keeps the connection half open: Receive() returns kDisconnected when the
  // reader has noticed.
  void HangUp();

  bool inserted() const { return socket_ >= 0; }
  int descriptor() const { return socket_; }

  // Waits for the next message. Sets `*command` if it is kCommand; otherwise `*command` is
  // unspecified. Returns kDisconnected if the reader has closed the connection.
  Message Receive(Bytes* command);
  // Returns false if the reader has closed the connection.
  bool Send(const Bytes& answer);

 private:
  bool ReceiveAll(Bytes* bytes);

  int socket_ = -1;
};
