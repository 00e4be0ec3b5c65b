# Recipe for Varnish 7, a reverse proxy whose cache the agent keeps warm.
#
# Varnish ignores Cache-Control in requests. These lines make it fetch and store a fresh copy when the
# agent requests a page with "Cache-Control: max-age=0". For all other clients nothing changes.
#
# Where:   Copy this file to /etc/varnish/refetchd.vcl. In default.vcl, after its backends and before
#          its own vcl_recv and vcl_backend_response, add this line:
#              include "/etc/varnish/refetchd.vcl";
#          Then: systemctl reload varnish
# Change:  Change the address if the agent runs on another host, or if updateproxy names another
#          address of this host. If clients reach Varnish through a TLS terminator on this host, they
#          come from the agent's address: let the terminator use the PROXY protocol
#          ("-a :8443,PROXY"); client.ip is then the address of the client.
# Agent:   transparentproxy on
#          updateproxy 127.0.0.1:6081
#          loadurl http://www.example.com/          (the name that clients use: Varnish keeps a
#                                                    separate copy for each name)
#          http11 on
#
# For a site with https behind a TLS terminator such as hitch, choose one of two ways. First way: keep
# the lines above; the agent then bypasses the terminator. If the terminator adds a header such as
# X-Forwarded-Proto, let the agent send it as well, or the site may answer with a redirection to
# https:
#          requestheader X-Forwarded-Proto: https
# Second way: let the agent connect to the terminator, as browsers do. In place of the lines for
# updateproxy and loadurl above, it then needs these lines:
#          proxytls on
#          updateproxy 127.0.0.1:443
#          loadurl https://www.example.com/
# If the certificate is not from a public CA, set proxytlsca to the file with the certificate of its CA.
#
# Pages with "Vary: Accept-Encoding": Varnish asks the site for gzip and keeps one copy for everybody,
# which it unpacks for clients without compression, so that no variant line is needed. The agent,
# which is such a client, gets these pages without their length and needs http11 to find links in them.

acl refetchd {
    "127.0.0.1";
}

sub vcl_recv {
    unset req.http.X-Refetchd;
    if (client.ip ~ refetchd && req.http.Cache-Control == "max-age=0") {
        set req.hash_always_miss = true;
        set req.http.X-Refetchd = "refresh";
    }
}

# If the site answers with an error, keep the good copy.
sub vcl_backend_response {
    if (bereq.http.X-Refetchd && beresp.status >= 500) {
        return (abandon);
    }
}
