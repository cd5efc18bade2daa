"""An Ansible connection to a private host.

Put this folder into ANSIBLE_CONNECTION_PLUGINS. A host of the inventory then has these variables:

    ansible_connection=private_host
    ansible_private_host_process=PID

PID is a process on the private host, with the number that it has for Ansible. Commands see its mounts, processes and
interfaces.
"""

import subprocess

from ansible.errors import AnsibleConnectionFailure
from ansible.plugins.connection import ConnectionBase

DOCUMENTATION = """
    name: private_host
    short_description: Runs commands on a private host
    description: Enters the mount, pid and network namespaces of a process.
    options:
      process:
        description: The id of a process on the private host.
        type: int
        required: true
        vars:
          - name: ansible_private_host_process
"""


class Connection(ConnectionBase):
    transport = 'private_host'
    has_pipelining = True

    def _connect(self):
        self._connected = True
        return self

    def close(self):
        self._connected = False

    def _run(self, command, data=None):
        target = ['--target', str(self.get_option('process'))]
        enter = ['nsenter', *target, '--mount', '--pid', '--net', '--root', '--wd', '--']
        return subprocess.run(enter + command, input=data, capture_output=True, check=False)

    def exec_command(self, cmd, in_data=None, sudoable=True):
        super().exec_command(cmd, in_data=in_data, sudoable=sudoable)
        ended = self._run(['/bin/sh', '-c', cmd], in_data)
        return ended.returncode, ended.stdout, ended.stderr

    def put_file(self, in_path, out_path):
        super().put_file(in_path, out_path)
        with open(in_path, 'rb') as file:
            ended = self._run(['/bin/sh', '-c', 'cat >"$1"', 'sh', out_path], file.read())
        if ended.returncode != 0:
            raise AnsibleConnectionFailure('cannot write %s: %s' % (out_path, ended.stderr.decode()))

    def fetch_file(self, in_path, out_path):
        super().fetch_file(in_path, out_path)
        ended = self._run(['cat', in_path])
        if ended.returncode != 0:
            raise AnsibleConnectionFailure('cannot read %s: %s' % (in_path, ended.stderr.decode()))
        with open(out_path, 'wb') as file:
            file.write(ended.stdout)
