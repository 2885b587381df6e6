-- What wrk sends: each request changes the element's figure, so that none of them leaves it as it was.
local figure = 0
local headers = { ["Content-Type"] = "application/json" }

function request()
    figure = figure + 1
    return wrk.format("POST", nil, headers, '{"figure":' .. figure .. '}')
end
