#pragma once
// Plugs the cloud mail-scan client into the dispatcher's two mail-scan
// messages. The client must outlive the handler's requests (in the process it
// is the singleton).
#include "bridge/safari_extension_handler.h"
#include "mailscan/mail_scan_client.h"

namespace wren {

inline MailScanRelay mailScanRelay(MailScanClient& client) {
  return MailScanRelay{
      [&client](const Json& request, MailScanSuccess success, MailScanFailure fail) {
        client.email_scan(request, std::move(success), std::move(fail));
      },
      [&client](const Json& request, MailScanSuccess success, MailScanFailure fail) {
        client.feedback(request, std::move(success), std::move(fail));
      }};
}

}  // namespace wren
