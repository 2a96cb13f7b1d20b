#pragma once
// A text-command instrument on a serial line, played on a pseudo-terminal.
//
// The client opens Path() (the terminal's slave side) as its serial port. The instrument reads
// commands as lines ending in CR or LF (empty lines are ignored) and answers the ones in its
// reply table; it can also send a line by itself at an interval, go silent, and report the
// exact bytes it received and the line settings the client applied.
//
// By default the line starts set up unlike the instrument (19200 baud, 2 stop bits, hardware
// and software handshake, echo, line editing, CR/LF translation), so LineSettings shows what
// the client changed; only data bits and parity cannot be made wrong (a pseudo-terminal keeps
// them at 8 and none). Unsolicited lines wait until the line is raw: sent earlier, a
// pseudo-terminal would echo and translate them, which no real line does. A line that starts
// raw can take bytes before any client opens it; they wait there for the first read.
#include <memory>
#include <string>
#include <string_view>

namespace vmio::sim {

struct SerialReply {
  std::string text;       // sent as is, line end included: "21.4\r\n"
  int delay_ms = 0;       // before the first byte
  size_t piece_size = 0;  // send in pieces of this many bytes (0: all at once)
  int piece_gap_ms = 0;   // between pieces
};

// What the slave side of the line is set to now.
struct SerialLineSettings {
  int input_baud = 0;
  int output_baud = 0;
  int data_bits = 0;                // 5 to 8
  bool parity = false;              // PARENB
  bool two_stop_bits = false;       // CSTOPB
  bool hardware_handshake = false;  // CRTSCTS
  bool software_handshake = false;  // IXON or IXOFF
  bool canonical = false;           // ICANON
  bool echo = false;                // ECHO
  bool signals = false;             // ISIG
  bool output_processing = false;   // OPOST
  bool cr_to_nl = false;            // ICRNL
  bool nl_to_cr = false;            // INLCR
  bool ignore_cr = false;           // IGNCR
  int vmin = -1;
  int vtime = -1;
};

enum class LineStart { Cooked, Raw };

class SerialSim {
 public:
  // Opens the pseudo-terminal and starts playing; raises std::runtime_error when it cannot.
  explicit SerialSim(LineStart start = LineStart::Cooked);
  ~SerialSim();
  SerialSim(const SerialSim&) = delete;
  SerialSim& operator=(const SerialSim&) = delete;

  // The path a client opens: "/dev/pts/N".
  const std::string& Path() const;

  // The answer to a command line; the command is the line's text without its CR or LF.
  void SetReply(const std::string& command, SerialReply reply);
  // Sends text by itself every interval_ms (0 stops), the first time as soon as the line is raw.
  void SetListenLine(std::string text, int interval_ms);
  // While silent, commands are received and logged but not answered.
  void SetSilent(bool silent);
  // While flooding, sends bytes without a line end as fast as the client takes them.
  void SetFlood(bool flood);
  // Closes the line for good, as an unplugged device does: the client's terminal hangs up.
  void HangUp();
  // Sends bytes now; returns once the client can read them (or after a second at most).
  void Send(std::string_view bytes);

  // Every byte received so far, exactly.
  std::string Received() const;
  void ClearReceived();
  SerialLineSettings LineSettings() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vmio::sim
