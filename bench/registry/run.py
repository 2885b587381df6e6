#!/usr/bin/env python3
"""What a registration and a read of the whole list cost kesa-registry, beside nginx answering the same bytes.

usage: run.py REGISTRY_PROGRAM [SECONDS [RUNS]]     needs: nginx, wrk

For 10, 1,000 and 10,000 entries, registry and nginx take turns; the medians of the runs are printed.
"""

import concurrent.futures
import http.client
import json
import os
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

SIZES = (10, 1000, 10000)
CONNECTIONS = 16
REGISTRY, NGINX = 18910, 18911
TICKS = os.sysconf("SC_CLK_TCK")

NGINX_CONF = """
worker_processes 1; daemon off; pid {dir}/pid; error_log {dir}/error;
events {{ worker_connections 4096; }}
http {{
  access_log off; sendfile on; keepalive_requests 1000000000; client_body_temp_path {dir}/body;
  proxy_temp_path {dir}/p; fastcgi_temp_path {dir}/f; uwsgi_temp_path {dir}/u; scgi_temp_path {dir}/s;
  open_file_cache max=10; default_type application/json;
  server {{
    listen 127.0.0.1:{port};
    location = / {{ root {dir}; try_files /list =404; }}
    location / {{
      if ($request_method = PUT) {{ add_header Location {location} always; return 201 '{created}'; }}
      return 200 '{removed}';
    }}
  }}
}}
"""

# Registers and removes in turn, so that the number of entries stays as it is.
CHANGES_LUA = """
local ids = {{}}
request = function()
  local id = table.remove(ids)
  return id and wrk.format("DELETE", id) or wrk.format("PUT", "/bench", nil, '{body}')
end
response = function(status, headers)
  if status == 201 then table.insert(ids, headers["Location"]) end
end
"""


def entry(name):
    return json.dumps({"apiVersions": ["1.0"], "description": "a service of the benchmark", "host": "127.0.0.1",
                       "name": name, "port": NGINX, "uri": "/" + name}, separators=(",", ":"))


def cpu_seconds(process):
    """Processor time of a process and its children."""
    pids = [process.pid]
    with open(f"/proc/{process.pid}/task/{process.pid}/children") as children:
        pids += children.read().split()
    total = 0
    for pid in pids:
        with open(f"/proc/{pid}/stat") as stat:
            fields = stat.read().rsplit(")", 1)[1].split()
        total += int(fields[11]) + int(fields[12])
    return total / TICKS


def wrk(process, port, seconds, script=None):
    """Requests per second, and microseconds of the server's processor time for each."""
    command = ["wrk", "-t1", f"-c{CONNECTIONS}", f"-d{seconds}s", f"http://127.0.0.1:{port}/"]
    before = cpu_seconds(process)
    output = subprocess.run(command + (["-s", script] if script else []), capture_output=True, text=True, check=True)
    used = cpu_seconds(process) - before
    if "Non-2xx" in output.stdout or "Socket errors" in output.stdout:
        sys.exit(output.stdout)
    requests = int(next(line for line in output.stdout.splitlines() if "requests in" in line).split()[0])
    rate = float(next(line for line in output.stdout.splitlines() if "Requests/sec" in line).split()[1])
    return rate, used * 1e6 / requests


def register(numbers):
    connection = http.client.HTTPConnection("127.0.0.1", REGISTRY)
    for i in numbers:
        connection.request("PUT", f"/service{i}", entry(f"service{i}"))
        answer = connection.getresponse()
        answer.read()
        assert answer.status == 201, answer.status


def fill(count):
    """Registers so many services, from several connections at once, and gives the list."""
    with concurrent.futures.ThreadPoolExecutor(CONNECTIONS) as pool:
        list(pool.map(register, (range(i, count, CONNECTIONS) for i in range(CONNECTIONS))))
    connection = http.client.HTTPConnection("127.0.0.1", REGISTRY)
    connection.request("GET", "/")
    return connection.getresponse().read()


def wait_for(port):
    for _ in range(200):
        try:
            http.client.HTTPConnection("127.0.0.1", port).connect()
            return
        except ConnectionRefusedError:
            time.sleep(0.05)
    sys.exit(f"nothing listens on port {port}")


def start_nginx(directory):
    with open(f"{directory}/nginx.conf", "w") as conf:
        some_id = "6ba7b810-9dad-11d1-80b4-00c04fd430c8"
        conf.write(NGINX_CONF.format(dir=directory, port=NGINX, location="/" + some_id, removed='{"status":"ok"}',
                                     created='{"data":{"id":"%s"},"status":"ok"}' % some_id))
    process = subprocess.Popen(["nginx", "-p", directory, "-c", f"{directory}/nginx.conf", "-e", f"{directory}/error"])
    wait_for(NGINX)
    return process


def measure(registry, nginx, seconds, runs, script):
    """The medians of registry and nginx, which take turns."""
    results = {"registry": [], "nginx": []}
    for _ in range(runs):
        results["registry"].append(wrk(registry, REGISTRY, seconds, script))
        results["nginx"].append(wrk(nginx, NGINX, seconds, script))
    return {name: [statistics.median(column) for column in zip(*values)] for name, values in results.items()}


def show(what, count, size, medians):
    (rate, cpu), (plain_rate, plain_cpu) = medians["registry"], medians["nginx"]
    print(f"| {what} | {count} | {size} | {rate:,.0f} | {plain_rate:,.0f} | {cpu:.1f} | {plain_cpu:.1f} "
          f"| {cpu / plain_cpu:.2f} |", flush=True)


def bench(program, directory, seconds, runs):
    with open(f"{directory}/changes.lua", "w") as script:
        script.write(CHANGES_LUA.format(body=entry("bench")))
    print("| request | entries | bytes of the list | registry, per s | nginx, per s | registry, us CPU | nginx, us CPU "
          "| ratio of CPU |\n|---|---|---|---|---|---|---|---|")
    for count in SIZES:
        nginx = start_nginx(directory)
        registries = []
        try:
            for state in ([], ["--state", f"{directory}/state-{count}"]):
                registry = subprocess.Popen([program, "--port", str(REGISTRY)] + state, stdout=subprocess.DEVNULL)
                registries.append(registry)
                wait_for(REGISTRY)
                text = fill(count)
                with open(f"{directory}/list", "wb") as file:
                    file.write(text)
                if not state:
                    show("`GET /`", count, len(text), measure(registry, nginx, seconds, runs, None))
                what = "`PUT`, `DELETE`" + (" with `--state`" if state else "")
                show(what, count, len(text), measure(registry, nginx, seconds, runs, f"{directory}/changes.lua"))
                registry.terminate()
                registry.wait()
        finally:
            for process in registries + [nginx]:
                process.send_signal(signal.SIGTERM)
                process.wait()


def main():
    program = os.path.abspath(sys.argv[1])
    seconds = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    directory = tempfile.mkdtemp(prefix="kesa-bench-")
    os.chmod(directory, 0o755)
    try:
        bench(program, directory, seconds, runs)
    finally:
        shutil.rmtree(directory)


main()
