-- Nine of ten requests belong to sessions, half of them on each back end; the applications take turns.
local requests, at = {}, 0

function init()
    for i = 1, 200 do
        local path = "/app" .. (i % 20) .. "/page" .. i
        local headers = {["Host"] = "localhost", ["User-Agent"] = "wrk", ["Accept"] = "text/html"}
        if i % 10 ~= 0 then headers["Cookie"] = "theme=dark; JSESSIONID=" .. string.format("%032X", i) .. ".b" .. (i % 2 + 1) end
        requests[i] = wrk.format("GET", path, headers)
    end
end

function request()
    at = at % #requests + 1
    return requests[at]
end

function done(summary)
    local e = summary.errors
    io.write(string.format("result %d %d %d\n", summary.requests, summary.duration, e.connect + e.read + e.write + e.status + e.timeout))
end
