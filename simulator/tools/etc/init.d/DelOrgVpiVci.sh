#!/bin/sh
# Deletes a circuit: DelOrgVpiVci.sh 1.VPI.VCI
exec gateway circuit delete -- "${1-}"
