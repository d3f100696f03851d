#!/bin/sh
echo hello
