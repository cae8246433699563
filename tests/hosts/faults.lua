-- Load of one session for wrk. The last line that it prints: requests, answers that are not that server's, errors to connect, read, write,
-- time-outs, an example of a wrong answer.
local threads = {}

function setup(thread)
    table.insert(threads, thread)
end

function init()
    bad, sample = 0, "-"
end

function response(status, headers, body)
    if status ~= 200 or body ~= "w1\n" then
        bad = bad + 1
        sample = status .. " " .. body:sub(1, 60):gsub("%s+", " ")
    end
end

function done(summary)
    local bad, sample = 0, "-"
    for _, thread in ipairs(threads) do
        bad = bad + thread:get("bad")
        if thread:get("sample") ~= "-" then sample = thread:get("sample") end
    end
    local errors = summary.errors
    print(summary.requests, bad, errors.connect, errors.read, errors.write, errors.timeout, sample)
end
