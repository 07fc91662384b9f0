-- wrk: an empty form post, for pages that write (they run only for POST).
wrk.method = "POST"
wrk.body = ""
wrk.headers["Content-Type"] = "application/x-www-form-urlencoded"
