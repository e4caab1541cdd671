#!/usr/bin/env python3
"""Makes a Kubernetes Job of a job script of snakemake, and prints its name.

Snakemake repeats a job that fails, hence no repetition by Kubernetes.
"""
import json
import os
import subprocess
import sys


def properties_of(script):
    """Snakemake writes them into the job script, as a comment."""
    mark = '# properties = '
    with open(script) as lines:
        return next(json.loads(line[len(mark):]) for line in lines if line.startswith(mark))


def manifest(script, properties):
    resources = {'cpu': str(properties['threads']),
                 'memory': f"{properties['resources']['mem_mb']}Mi"}
    container = {'name': 'quorix',
                 'image': os.environ['QUORIX_IMAGE'],
                 'command': ['sh', script],
                 'workingDir': os.getcwd(),
                 'env': [{'name': 'HOME', 'value': '/tmp'}],
                 'resources': {'requests': resources, 'limits': resources},
                 'volumeMounts': [{'name': 'shared', 'mountPath': os.environ['QUORIX_MOUNT']}]}
    claim = {'name': 'shared',
             'persistentVolumeClaim': {'claimName': os.environ['QUORIX_CLAIM']}}
    return {'apiVersion': 'batch/v1',
            'kind': 'Job',
            'metadata': {'generateName': f"quorix-{properties['rule']}-",
                         'labels': {'app': 'quorix'}},
            'spec': {'backoffLimit': 0,
                     'activeDeadlineSeconds': 60 * int(properties['resources']['runtime']),
                     'ttlSecondsAfterFinished': 86400,
                     'template': {'spec': {'restartPolicy': 'Never',
                                           'securityContext': {'runAsUser': os.getuid(),
                                                               'runAsGroup': os.getgid()},
                                           'containers': [container],
                                           'volumes': [claim]}}}}


def main():
    script = sys.argv[-1]
    text = json.dumps(manifest(script, properties_of(script)))
    made = subprocess.run(['kubectl', 'create', '-f', '-', '-o', 'name'], input=text, text=True,
                          stdout=subprocess.PIPE, check=True)
    print(made.stdout.strip())


if __name__ == '__main__':
    main()
