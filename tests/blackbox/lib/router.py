"""A home router, played by the platform's router hooks; every call is logged in order."""

import os


class Router:
    """Knobs: `detect` (exit status of the detection), `rules` (exit status of setting or removing
    rules), `refused` (router ports that it does not grant)."""

    def __init__(self, host):
        self._host = host
        self._log = host.workspace + "/router.log"
        self.configure()

    def configure(self, detect=0, rules=0, refused=()):
        self._host.hook("router-detect", f'echo "detect $*" >> {self._log}\nexit {detect}\n')
        cases = "".join(f"{port}:*) answer=failed ;; " for port in refused)
        self._host.hook("router-rules", f'''echo "rules $*" >> {self._log}
shift
for pair in "$@"; do
  case $pair in {cases}*) answer=ok ;; esac
  echo "${{pair%%:*}} $answer"
done
exit {rules}
''')

    @property
    def calls(self):
        """"detect", "rules SET EXTERNAL:INTERNAL ..." in order."""
        if not os.path.exists(self._log):
            return []
        with open(self._log, encoding="utf-8") as log:
            return [line.strip() for line in log]


OPENED = "rules Letsencrypt 80:80 443:443"
CLOSED = "rules Letsencrypt"
