# Varnish 7, a reverse proxy that the agent keeps warm.
#
# Varnish ignores Cache-Control in requests. These lines make it fetch anew, and store, what the agent
# asks for with "Cache-Control: max-age=0", and what nobody else does.
#
# Where:   /etc/varnish/refetchd.vcl, and in default.vcl, after its backends and before its own
#          vcl_recv and vcl_backend_response: include "/etc/varnish/refetchd.vcl";
#          then: systemctl reload varnish
# Change:  the address, when the agent runs on another host or updateproxy names another address of
#          this one. Clients that come through a TLS terminator on this host must not look like the
#          agent: have it speak the PROXY protocol ("-a :8443,PROXY"), and client.ip is their own.
# Agent:   transparentproxy on
#          updateproxy 127.0.0.1:6081
#          loadurl http://www.example.com/          (the name by which clients ask: a copy is kept
#                                                    for each)

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

# What the origin answers while it is in trouble must not take the place of a good copy.
sub vcl_backend_response {
    if (bereq.http.X-Refetchd && beresp.status >= 500) {
        return (abandon);
    }
}
