#pragma once

#include <csignal>
#include <mutex>
#include <string>
#include <vector>

#include "utility/Export.h"

struct sockaddr;

namespace utility {

/// Sends one plain-text mail, or tests a mail account, over a direct TCP connection to an SMTP
/// server.
///
/// There is no TLS and no MIME: header lines, body and credentials travel as they are, readable on
/// the way (CRAM-MD5 alone does not show the password). Texts are not checked: a line break in an
/// address or a subject reaches the server as one.
///
/// `sendmail` and `testmail` are whole sessions. A session holds `m_mutex` from start to end, so
/// sessions of several threads run one after another, and it replaces the process's SIGALRM action
/// while it lasts: nothing else in the process may use alarm(2) meanwhile. The other operations are
/// the steps that sessions are made of. Nothing throws but for memory, and nothing is printed.
///
/// Commands and replies have 4096 bytes: a longer command is cut to 4095 and sent so, the rest of a
/// longer reply is left for the next read. A server that neither reads nor answers cannot hold a
/// session for ever: sends give up after 15 s without progress, single replies are awaited for 5
/// minutes. Signals do not lengthen a wait. What is formatted into a command ends at its first NUL.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | success |
/// | 1 | a bad argument; a failed read of a single reply; credentials that do not fit |
/// | 2 | the socket could not be created |
/// | 3 | the connection succeeded but there is no socket |
/// | 4 | the host name, or the service "smtp", is unknown |
/// | 5 | connecting failed before the time limit |
/// | 6 | out of memory |
/// | 7 | not everything could be sent |
/// | 8 | reading failed |
/// | 9 | the reply did not begin with "250" |
/// | 11 | connecting took longer than its limit |
/// | 13 | the alarm handler could not be installed |
/// | 14 | authentication was refused, or the server's challenge is missing |
/// | 15 | the CRAM-MD5 answer could not be encoded |
/// | 17 | waiting failed |
/// | 18 | nothing became readable in time |
class UTILITY_API CSmtp {
 public:
  /// A mail to send.
  struct send_mail_t {
    std::string server;    ///< host name or dotted address; also the argument of EHLO
    std::string user;      ///< account name
    std::string password;  ///< the account's password
    char need_auth;        ///< non-zero to authenticate
    short port;            ///< TCP port; below 1 (so 32768 and up, too) that of the service "smtp"
    std::string from;      ///< sender address
    std::string subject;   ///< copied unchanged, unencoded
    std::vector<std::string> to;  ///< recipients, at least one
    std::vector<std::string> cc;  ///< recipients of a copy, may be empty
    const char* body;             ///< the body's bytes; not owned, not null
    int body_len;                 ///< their number, at least 1
  };

  /// An account to test; the fields mean what they mean in a mail.
  struct test_mail_t {
    std::string server;    ///< host name or dotted address
    std::string user;      ///< account name
    std::string password;  ///< the account's password
    char need_auth;        ///< non-zero to authenticate
    short port;            ///< TCP port; below 1 that of the service "smtp"
    std::string from;      ///< sender address
  };

  // The bits of the methods that a server offers.
  static constexpr char kAuthLogin = 1;    ///< AUTH LOGIN
  static constexpr char kAuthPlain = 2;    ///< AUTH PLAIN
  static constexpr char kAuthCramMd5 = 4;  ///< AUTH CRAM-MD5

  /// Locked for the length of a session.
  static std::mutex m_mutex;
  /// The SIGALRM action to restore at the session's end.
  static struct sigaction m_oact;

  /// Sends one mail in a session of its own.
  ///
  /// The text sent is the header, the body and a zero byte. A recipient that is refused (anything
  /// but a reply 250) ends the session before the text.
  ///
  /// @return 0, or the code of the first step that failed; 1 without touching the network for a
  ///         mail without server, sender, recipient or body.
  static int sendmail(send_mail_t& mail);

  /// Connects, authenticates if asked to, and offers the sender; no mail is sent.
  ///
  /// @param account  what is tested.
  /// @param flags    receives what worked: 1 connected, 2 authenticated, 4 sender accepted.
  /// @return 0, or the code of the first step that failed; 1 without server or sender.
  static int testmail(test_mail_t& account, char& flags);

  /// Begins a session: locks `m_mutex` and installs `handle_alarm` for SIGALRM.
  ///
  /// @return 0, or 13 (the mutex is unlocked again).
  static int init();
  /// Ends a session that `init` began, on the same thread: restores the action and unlocks.
  static void destroy();

  /// Resolves `host` to its first IPv4 address and connects within 3 seconds.
  ///
  /// Belongs between `init` and `destroy`.
  ///
  /// @param host  host name or dotted address.
  /// @param port  see send_mail_t.
  /// @param sock  receives the socket, which the caller closes, also when a later step fails;
  ///              untouched when it could not be created.
  /// @return 0, 2, 4, 5 or 11.
  static int connecttoserv(std::string host, short port, int& sock);

  /// connect(2) under an alarm of `seconds`, and given up after that time in this thread, whichever
  /// thread takes the alarm and whatever other signals arrive. 0 sets no limit.
  ///
  /// @return 0; 5 when it failed with time left; 11 when the time had run out, and for every
  ///         failure without a limit.
  static int connect_timeout(int sock, sockaddr* address, unsigned int len, int seconds);

  /// Waits until something can be read: for `seconds` (without limit when negative), then three
  /// times 0.1 s more.
  ///
  /// @return 0, 17 or 18.
  static int IsReadable(int sock, long seconds);

  /// Reads into `buf` until the peer falls silent: for 5 times 3 s while nothing has come, for 5
  /// times 0.1 s after data. What exceeds `size` is left unread.
  ///
  /// @param sock   the connected socket.
  /// @param buf    receives the bytes; no NUL is added.
  /// @param size   the room in `buf`.
  /// @param flags  for recv(2).
  /// @return the bytes read, or -8 or -17.
  static int recvex(int sock, char* buf, unsigned long size, int flags);

  /// Sends a command and reads its reply.
  ///
  /// @param sock       the connected socket.
  /// @param cmd        the command with its line end.
  /// @param cmdLen     its bytes.
  /// @param replyMode  0 reads nothing, 1 reads once, other values read as `recvex` does.
  /// @param reply      zeroed over `replyLen` bytes first; not NUL-terminated when it is filled.
  ///                   Not used in mode 0. May be the command's own buffer.
  /// @param replyLen   the room in `reply`; receives the bytes read (0 when the peer has closed).
  /// @return 0; 1 for a null command or reply, a negative socket, a length below 1 or a failed
  ///         single read; 7; 8; 17.
  static int sendcmd(int sock, char* cmd, int cmdLen, int replyMode, char* reply, int& replyLen);

  /// Finds the authentication methods in a reply to EHLO.
  ///
  /// The first line that begins with "250-AUTH " counts, and no other: a method offered only in the
  /// reply's last line ("250 AUTH ...") or in the old form "AUTH=" is not found.
  ///
  /// @param ehloReply  NUL-terminated.
  /// @param methods    receives the bits of the methods offered.
  /// @return 0; 1 for a null reply (`methods` is untouched).
  static int parseauth(char* ehloReply, char& methods);

  /// Authenticates by the offered methods in the order CRAM-MD5, LOGIN, PLAIN, until one succeeds.
  ///
  /// @return 0, also when none is offered; otherwise the code of the last method tried.
  static int smtp_auth(int sock, const std::string& user, const std::string& password,
                       const char& methods);

  /// Authenticate by one method. Credentials that do not fit into a command send nothing and
  /// give 1.
  ///
  /// @return 0; 1; 6; 7; 14; in CRAM-MD5 also 15 and what `CHmacMd5::hmac_md5` returns (1 for an
  ///         empty password or challenge).
  static int auth_cram_md5(int sock, std::string user, std::string password);
  /// See `auth_cram_md5`.
  static int auth_login(int sock, std::string user, std::string password);
  /// See `auth_cram_md5`.
  static int auth_plain(int sock, std::string user, std::string password);

  /// Builds the header: Date (the C library's "%c" form of now), From, To, Cc if any, Subject, and
  /// the empty line that ends it.
  ///
  /// @return 0, or 6 (`header` is untouched).
  static int formatheader(send_mail_t& mail, std::string& header);

  /// The dialogue of a mail after connecting, QUIT included. The socket stays open.
  ///
  /// @return 0, 1, 6, 7, 8, 9, 17, 18 or a code of `smtp_auth`.
  static int putmail(int sock, send_mail_t& mail);

  /// The dialogue of a test after connecting, QUIT included; adds to `flags`. The socket stays
  /// open.
  ///
  /// @return 0, 1, 6, 7, 8, 9, 17, 18 or a code of `smtp_auth`.
  static int test_valid(int sock, test_mail_t& account, char& flags);

  /// Does nothing: its only purpose is to interrupt connect(2).
  static void handle_alarm(int signal);
};

}  // namespace utility
